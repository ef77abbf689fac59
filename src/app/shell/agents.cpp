#include "app/shell/agents.h"

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "core/agent/agent_discovery.h"
#include "core/base/child_process.h"
#include "core/base/log.h"
#include "core/base/paths.h"
#include "core/base/run_loop.h"
#include "core/base/utf8.h"

namespace zorvane::Agents {

static std::vector<std::string> listDirectory(const std::string& path) {
  std::vector<std::string> names;
  DIR* dir = ::opendir(path.c_str());
  if (dir == nullptr) return names;
  while (dirent* entry = ::readdir(dir)) {
    std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(std::move(name));
  }
  ::closedir(dir);
  return names;
}

std::string shell(const std::string& path, const std::vector<std::string>& arguments,
                  double timeoutSeconds) {
  // A queue of its own: this runs off the main queue and must not touch it.
  RunLoop loop;
  std::string output;
  bool exited = false;
  {
    auto child = ChildProcess::create({path, arguments, "", std::nullopt, true}, loop);
    child->onStdout = [&](std::string chunk) { output += chunk; };
    child->onExit = [&](int) { exited = true; };
    if (!child->start()) return "";
    if (!loop.runUntil([&] { return exited; }, timeoutSeconds)) {
      Log::info("agents: " + path + " still ran after " + std::to_string(static_cast<int>(timeoutSeconds)) +
                " s; stopped it");
      child->kill();
      loop.runUntil([&] { return exited; }, 5);
    }
  }
  return repairUTF8(output);
}

std::vector<std::string> missingClaudeFlags(const std::string& path) {
  return AgentDiscovery::missingFlags(shell(path, {"--help"}), AgentDiscovery::claudeRequiredFlags());
}

std::vector<InstalledAgent> discover() {
  const std::string home = Paths::home();
  std::vector<std::string> folders = AgentDiscovery::searchDirectories(home, listDirectory);
  std::vector<InstalledAgent> found = AgentDiscovery::discover(AgentKind::all(), folders, Paths::isExecutableFile);

  auto missingKinds = [&found] {
    std::vector<AgentKind> missing;
    for (const AgentKind& kind : AgentKind::all()) {
      bool present = std::any_of(found.begin(), found.end(), [&](const InstalledAgent& a) { return a.kind == kind; });
      if (!present) missing.push_back(kind);
    }
    return missing;
  };

  // This process's own PATH: a tool the user can run from the terminal that started us.
  if (auto missing = missingKinds(); !missing.empty()) {
    auto more = AgentDiscovery::discover(missing, Paths::searchPath(), Paths::isExecutableFile);
    found.insert(found.end(), more.begin(), more.end());
  }

  std::vector<AgentKind> missing = missingKinds();

  if (!missing.empty()) {
    std::string script;
    for (const AgentKind& kind : missing) {
      for (const std::string& name : kind.binaryNames) script += "command -v " + name + " 2>/dev/null; ";
    }
    script += "true";
    std::string output = shell(Paths::userShell(), {"-lc", script});
    size_t start = 0;
    while (start < output.size()) {
      size_t end = output.find('\n', start);
      if (end == std::string::npos) end = output.size();
      std::string line = output.substr(start, end - start);
      start = end + 1;
      if (line.empty() || line[0] != '/') continue;
      std::string name = line.substr(line.rfind('/') + 1);
      for (const AgentKind& kind : missing) {
        if (std::find(kind.binaryNames.begin(), kind.binaryNames.end(), name) == kind.binaryNames.end()) continue;
        bool already = std::any_of(found.begin(), found.end(), [&](const InstalledAgent& a) { return a.kind == kind; });
        if (!already) found.push_back({kind, line});
        break;
      }
    }
  }

  std::vector<InstalledAgent> ordered;
  for (const AgentKind& kind : AgentKind::all()) {
    auto it = std::find_if(found.begin(), found.end(), [&](const InstalledAgent& a) { return a.kind == kind; });
    if (it != found.end()) ordered.push_back(*it);
  }
  return ordered;
}

}  // namespace zorvane::Agents
