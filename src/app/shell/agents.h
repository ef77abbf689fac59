// Agents: the agent catalogue bound to this machine — the real file system, the user's
// login shell, and the tools' own --help.
//
// Both functions block their caller while a child runs; the application calls them off
// the main queue and hands the result back. Neither keeps state.
#pragma once

#include <string>
#include <vector>

#include "core/agent/agent_kind.h"

namespace zorvane::Agents {

// Every catalogue tool found: first in the usual install folders; for the kinds still
// missing, in this process's own PATH, then through `command -v` in the user's login
// shell (which sees the PATH a new terminal would). In catalogue order.
std::vector<InstalledAgent> discover();

// Runs a program and returns its standard output with invalid UTF-8 repaired; standard
// error is read and dropped. Empty text when it can't be started. A program still
// running after `timeoutSeconds` is killed (and the log says so); what it printed until
// then is returned.
std::string shell(const std::string& path, const std::vector<std::string>& arguments,
                  double timeoutSeconds = 10);

// The flags a resident tool at `path` lacks, by its --help text.
std::vector<std::string> missingClaudeFlags(const std::string& path);

}  // namespace zorvane::Agents
