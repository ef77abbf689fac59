#include "app/shell/discover.h"

#include <algorithm>

#include "app/shell/agents.h"
#include "app/shell/say.h"
#include "app/shell/selftest.h"

namespace zorvane {

std::string discoveryStatus(const InstalledAgent& agent, const MissingFlags& missingFlags) {
  if (!agent.kind.isDriveable) return "found";
  if (agent.kind.id != AgentKind::claude().id) return "ready";
  std::vector<std::string> missing = missingFlags(agent.path);
  if (missing.empty()) return "ready";
  std::string list = "[";
  for (size_t i = 0; i < missing.size(); ++i) list += (i ? ", \"" : "\"") + missing[i] + "\"";
  return "missing " + list + "]";
}

std::vector<std::string> discoveryLines(const std::vector<InstalledAgent>& found,
                                        const MissingFlags& missingFlags) {
  std::vector<std::string> lines;
  for (const InstalledAgent& agent : found) {
    lines.push_back(agent.kind.id + "\t" + agent.path + "\t" +
                    discoveryStatus(agent, missingFlags));
  }
  // A newcomer with none of the tools would otherwise see nothing at all: name each one
  // this program can drive and how to get it.
  for (const AgentKind& kind : AgentKind::all()) {
    if (!kind.isDriveable) continue;
    bool isFound = std::any_of(found.begin(), found.end(), [&](const InstalledAgent& agent) {
      return agent.kind.id == kind.id;
    });
    if (!isFound) lines.push_back(kind.id + "\t-\tmissing: " + kind.installHint);
  }
  return lines;
}

void runDiscover() {
  Say say;
  for (const std::string& line : discoveryLines(Agents::discover(), Agents::missingClaudeFlags))
    say({line});
  exitProcess(0);
}

}  // namespace zorvane
