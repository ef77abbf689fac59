#include "core/agent/agent_transport.h"

#include "core/base/paths.h"

namespace zorvane {

Environment agentEnvironment(const std::string& executable, Environment env) {
  std::string folder = executable.substr(0, executable.rfind('/'));
  if (folder.empty()) folder = "/";
  env.set("PATH", folder + ":" + Paths::home() + "/.local/bin:/usr/local/bin:" +
                      env.get("PATH").value_or("/usr/bin:/bin:/usr/sbin:/sbin"));
  return env;
}

}  // namespace zorvane
