// Whole-file reads and crash-safe writes.
//
// What these functions create is private unless the caller asks otherwise: folders
// 0700, files 0600 (less the umask). Below Zorvane's own folders (Paths::ownDirectories:
// data, state, config, which hold the scopes, MCP configurations, socket, stores and log)
// that is the rule whatever the caller asks: another local user must not read an agent's
// scope or configuration, let alone change one. There an existing folder on the way that
// others may enter is tightened to 0700, one owned by another user is refused, and a
// replaced file loses any group and other bits it had.
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
// gets `mode` (before the umask). Below an own folder, see above.
[[nodiscard]] Expected<void> writeFileAtomically(const std::string& path, std::string_view bytes,
                                                 unsigned mode = 0600);

// Creates a folder and its parents (like mkdir -p) with `mode` (before the umask).
// Succeeds if it already exists. Below an own folder, see above.
[[nodiscard]] Expected<void> createDirectories(const std::string& path, unsigned mode = 0700);

}  // namespace zorvane
