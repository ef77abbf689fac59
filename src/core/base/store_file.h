// StoreFile: the on-disk side of the JSON stores (sessions, pieces, schedules, skills,
// activity). Each store is one file holding a JSON array.
//
// Stores fail quietly but never lose the user's data:
//   - a missing file reads as empty;
//   - a file that is there but can't be read, isn't JSON, isn't an array, or whose
//     elements the store can't decode also reads as empty, but is first moved aside to
//     "<file>.corrupt" (an older one there is left alone: "<file>.corrupt-2", "-3", ...)
//     and the log says so, so the next save can't overwrite what might still be
//     recovered. Before moving it, the file is read once more under the lock, in case
//     another process was just replacing it;
//   - a save replaces the file atomically (temporary file, flush, rename) while holding
//     an exclusive lock on "<file>.lock", so saves from several processes of the same
//     user each leave one whole file, the last one winning.
//     The file is 0600 and the folders made for it 0700: a store holds the user's
//     conversations, pieces and schedules, which no other local user may read.
// Decoding the elements is each store's own business (element by element, usually).
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "core/base/expected.h"
#include "core/base/json_value.h"

namespace zorvane::StoreFile {

// Hands the file's array to `decode`. Returns whether it accepted one; when it didn't,
// the file is missing or was moved aside (see above), and the store starts empty.
bool load(const std::string& path, const std::function<Expected<void>(const JSONValue&)>& decode);

// The array in the file, or absent when there is none to read (see above).
[[nodiscard]] std::optional<JSONValue> loadArray(const std::string& path);

// Writes `bytes` as the new content of the file, atomically and under the lock.
[[nodiscard]] Expected<void> save(const std::string& path, std::string_view bytes);

}  // namespace zorvane::StoreFile
