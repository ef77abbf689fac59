// StoreFile: the on-disk side of the JSON stores (sessions, pieces, schedules, skills,
// activity). Each store is one file holding a JSON array.
//
// Stores fail quietly but never lose the user's data:
//   - a missing or unreadable file reads as empty;
//   - a file that isn't JSON, or isn't an array, also reads as empty, but is first moved
//     aside to "<file>.corrupt" (an older one there is replaced by "<file>.corrupt-2",
//     "-3", ... rather than overwritten) and the log says so, so the next save can't
//     overwrite what might still be recovered;
//   - a save replaces the file atomically (temporary file, flush, rename) while holding
//     an exclusive lock on "<file>.lock", so saves from several processes of the same
//     user each leave one whole file, the last one winning.
// Decoding the elements is each store's own business (element by element, usually).
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "core/base/expected.h"
#include "core/base/json_value.h"

namespace zorvane::StoreFile {

// The array in the file, or absent when there is none to read (see above).
[[nodiscard]] std::optional<JSONValue> loadArray(const std::string& path);

// Writes `bytes` as the new content of the file, atomically and under the lock.
[[nodiscard]] Expected<void> save(const std::string& path, std::string_view bytes);

}  // namespace zorvane::StoreFile
