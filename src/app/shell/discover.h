// The --discover mode: first one line per agent tool found, "id<TAB>path<TAB>status", in
// catalogue order, where status is "ready", "found" (a tool this program can't drive)
// or "missing [...]" with the flags an outdated resident tool lacks; then one line per
// tool this program can drive that isn't on the machine, in catalogue order,
// "id<TAB>-<TAB>missing: <the command that installs it>".
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "core/agent/agent_kind.h"

namespace zorvane {

// The flags a resident tool at a path lacks (Agents::missingClaudeFlags on this machine).
using MissingFlags = std::function<std::vector<std::string>(const std::string&)>;

// The status column for one installed agent. `missingFlags` is asked only for the
// resident tool, the one kind whose flags are checked.
std::string discoveryStatus(const InstalledAgent& agent, const MissingFlags& missingFlags);

// Every line --discover prints for the tools in `found` (catalogue order), without
// line ends.
std::vector<std::string> discoveryLines(const std::vector<InstalledAgent>& found,
                                        const MissingFlags& missingFlags);

// Runs the --discover mode to its end; never returns.
[[noreturn]] void runDiscover();

}  // namespace zorvane
