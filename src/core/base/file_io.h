// Whole-file reads and crash-safe writes.
#pragma once

#include <string>
#include <string_view>

#include "core/base/expected.h"

namespace zorvane {

// Reads a whole file. The failure text is the system's reason ("No such file or directory").
[[nodiscard]] Expected<std::string> readFile(const std::string& path);

// Writes `bytes` to `path` so that readers see either the old file or the new one,
// never a part: the parent folders are created, the bytes go to a temporary file in
// the same folder which is flushed to disk and then renamed over `path`. On failure
// the old file is left whole and the temporary file is removed; the text names the
// step and the system's reason. An existing file keeps its permission bits; a new one
// gets `mode` (before the umask).
[[nodiscard]] Expected<void> writeFileAtomically(const std::string& path, std::string_view bytes,
                                                 unsigned mode = 0644);

// Creates a folder and its parents (like mkdir -p). Succeeds if it already exists.
[[nodiscard]] Expected<void> createDirectories(const std::string& path, unsigned mode = 0755);

}  // namespace zorvane
