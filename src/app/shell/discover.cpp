#include "app/shell/discover.h"

#include <functional>

#include "app/shell/agents.h"
#include "app/shell/say.h"
#include "app/shell/selftest.h"

namespace zorvane {

std::string discoveryStatus(const InstalledAgent& agent,
                            const std::function<std::vector<std::string>(const std::string&)>& missingFlags) {
  if (!agent.kind.isDriveable) return "found";
  if (agent.kind.id != AgentKind::claude().id) return "ready";
  std::vector<std::string> missing = missingFlags(agent.path);
  if (missing.empty()) return "ready";
  std::string list = "[";
  for (size_t i = 0; i < missing.size(); ++i) list += (i ? ", \"" : "\"") + missing[i] + "\"";
  return "missing " + list + "]";
}

void runDiscover() {
  Say say;
  for (const InstalledAgent& agent : Agents::discover()) {
    say({agent.kind.id + "\t" + agent.path + "\t" + discoveryStatus(agent, Agents::missingClaudeFlags)});
  }
  exitProcess(0);
}

}  // namespace zorvane
