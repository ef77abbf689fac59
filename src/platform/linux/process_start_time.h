// When a process started, from /proc: what tells a process apart from a later one that
// got the same pid.
#pragma once

#include <cstdint>
#include <optional>

namespace zorvane {

// Clock ticks after boot (field 22 of /proc/<pid>/stat); nothing when the process is gone.
std::optional<unsigned long long> processStartTime(int32_t pid);

}  // namespace zorvane
