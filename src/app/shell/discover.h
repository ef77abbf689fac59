// The --discover mode: one line per agent tool found, "id<TAB>path<TAB>status", in
// catalogue order, where status is "ready", "found" (a tool this program can't drive)
// or "missing [...]" with the flags an outdated resident tool lacks.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "core/agent/agent_kind.h"

namespace zorvane {

// The status column for one installed agent. `missingFlags` is asked only for the
// resident tool, the one kind whose flags are checked.
std::string discoveryStatus(const InstalledAgent& agent,
                            const std::function<std::vector<std::string>(const std::string&)>& missingFlags);

// Runs the --discover mode to its end; never returns.
[[noreturn]] void runDiscover();

}  // namespace zorvane
