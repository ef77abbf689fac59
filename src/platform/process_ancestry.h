// Process ancestry: whether a process descends from another, read from the system's
// process table (/proc on Linux). The peer socket's router uses it to prove which
// piece a request comes from: a tool server is a child of its agent, whose process the
// application started.
#pragma once

#include <cstdint>

namespace zorvane {

// Whether `ancestor` is `pid` itself or one of its parents, grandparents and so on. A
// process that was reparented (its parent died) no longer descends from it. False when
// either process can't be read.
bool isProcessDescendant(int32_t pid, int32_t ancestor);

}  // namespace zorvane
