// StoreCoding: what the JSON stores (sessions, live pieces, activity) share when they
// read their files: one strict date form, a reader of record fields whose failures name
// the key, the decoding of a whole array, and a load that keeps an undecodable file.
//
// The stores decode a file all or nothing: one record that doesn't decode makes the
// whole file read as empty. Such a file, like one that is there but can't be read, is
// never left for the next save to overwrite:
// `loadRecords` moves it aside to "<file>.corrupt" (or "-2", "-3", ...) and says so in
// the log, exactly as StoreFile does for a file that isn't a JSON array at all.
//
//   std::vector<SessionRecord> records;
//   StoreCoding::loadRecords(path, [&](const JSONValue& array) -> Expected<void> {
//     auto decoded = StoreCoding::decodeArray<SessionRecord>(array, &SessionRecord::decode);
//     if (!decoded) return Failure{decoded.error()};
//     records = std::move(*decoded);
//     return ok();
//   });
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/base/expected.h"
#include "core/base/iso8601.h"
#include "core/base/json_value.h"
#include "core/base/uuid.h"

namespace zorvane::StoreCoding {

// The stores' one date form, "2026-05-01T09:30:00Z": UTC, whole seconds. Fractions of a
// second and offsets, which parseISO8601 also takes, are refused here.
[[nodiscard]] std::optional<SystemTime> parseDate(std::string_view text);

// The fields of one stored object. Every failure reads "<key>: <why>". An optional field
// that is missing or null is absent; present with another type, it is a failure.
class FieldReader {
 public:
  // `object` must outlive the reader.
  explicit FieldReader(const JSONValue& object) : object_(object) {}

  [[nodiscard]] Expected<std::string> string(std::string_view key) const;
  [[nodiscard]] Expected<std::optional<std::string>> optionalString(std::string_view key) const;
  // The 36-character form in either case.
  [[nodiscard]] Expected<UUID> uuid(std::string_view key) const;
  // parseDate's form only.
  [[nodiscard]] Expected<SystemTime> date(std::string_view key) const;
  // A signed 64-bit whole number; 7.0 counts as 7, 7.5 and 2^63 fail.
  [[nodiscard]] Expected<int64_t> integer(std::string_view key) const;
  [[nodiscard]] Expected<std::optional<bool>> optionalBool(std::string_view key) const;
  [[nodiscard]] Expected<const JSONValue*> field(std::string_view key) const;

 private:
  const JSONValue& object_;
};

// Fails unless `value` is an object, naming what it is instead.
[[nodiscard]] Expected<void> expectObject(const JSONValue& value);

// Decodes every element of a JSON array with `decode`, in order. The first element that
// fails fails the whole array, as "item <index>: <why>" (index from 0).
template <typename Record>
[[nodiscard]] Expected<std::vector<Record>> decodeArray(const JSONValue& array,
                                                        Expected<Record> (*decode)(const JSONValue&)) {
  if (!array.is_array()) return Failure{std::string("expected an array, found ") + array.type_name()};
  std::vector<Record> records;
  records.reserve(array.size());
  size_t index = 0;
  for (const JSONValue& element : array) {
    Expected<Record> record = decode(element);
    if (!record) return Failure{"item " + std::to_string(index) + ": " + record.error()};
    records.push_back(std::move(*record));
    ++index;
  }
  return records;
}

// Reads the store file at `path` and hands its array to `decode`. A missing file, or one
// StoreFile can't read as an array, never reaches `decode`. When `decode` fails, or the
// file is there but can't be read, the file is looked at once more under the store's lock
// (another process may have replaced it a moment ago); if it still fails, it is moved
// aside and the log names the file, the reason and where it went. `decode` should keep
// its result only when it succeeds.
void loadRecords(const std::string& path, const std::function<Expected<void>(const JSONValue&)>& decode);

}  // namespace zorvane::StoreCoding
