// SessionStore: the file of past conversations, "sessions.json" in the data folder. It is
// how a piece dropped again on a target it knew can offer to go on where it stopped.
//
// The file is a JSON array of SessionRecord objects, most recently updated first,
// pretty-printed with sorted keys; dates are UTC with whole seconds
// ("2026-05-01T09:30:00Z") and read back in that form only. A target has at most one
// record, and the file holds at most `kCapacity` records.
//
// The file is read once, by the constructor, and then written through after every
// change. Loading is all or nothing: a missing file is empty, and so is one that has a
// single record that doesn't decode (a record without `turns`, a date in another form);
// such a file, like one that can't be read, is moved aside to "sessions.json.corrupt"
// and logged, never overwritten.
// Saves run on a writer thread (see StoreWriter): the calling thread only copies the
// records. A failed save is logged and the records in memory stand.
//
// No lock: a SessionStore belongs to the main thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/base/expected.h"
#include "core/base/iso8601.h"
#include "core/base/json_value.h"
#include "core/base/uuid.h"
#include "core/registry/store_writer.h"
#include "core/targets/target.h"

namespace zorvane {

// One conversation: the target it was about, as keys, and where it stopped.
struct SessionRecord {
  std::string targetKey;                 // Target::targetKey() when saved
  std::optional<std::string> looseKey;   // Target::looseKey() when saved
  UUID sessionID;
  std::string displayName;               // the target's display name
  std::string lastPrompt;                // the last thing the user said
  std::string lastAnswer;
  SystemTime updatedAt;                  // the last turn
  int64_t turns = 0;
  std::optional<std::string> agent;       // an AgentKind id
  std::optional<std::string> externalID;  // the agent tool's own session id, for resuming

  // The object of the file; absent optionals are left out.
  [[nodiscard]] JSONValue encode() const;
  // Fails on a missing required key or a key of the wrong type, naming the key
  // ("turns: missing"). Unknown keys are ignored; null counts as absent for optionals.
  [[nodiscard]] static Expected<SessionRecord> decode(const JSONValue& value);

  friend bool operator==(const SessionRecord&, const SessionRecord&) = default;
};

class SessionStore {
 public:
  static constexpr size_t kCapacity = 200;

  // Reads the file at `url` (a file path); any failure leaves the store empty.
  explicit SessionStore(std::string url);

  // "sessions.json" in Paths::dataDirectory().
  [[nodiscard]] static std::string defaultURL();

  [[nodiscard]] const std::string& url() const { return writer_.path(); }
  // Most recently updated first.
  [[nodiscard]] const std::vector<SessionRecord>& records() const { return records_; }

  // The first record with the target's targetKey. Failing that, among the records with
  // the target's looseKey (none when the target has none), the latest updatedAt, the
  // first of equal ones. An exact hit wins over any loose one, even a newer one.
  [[nodiscard]] std::optional<SessionRecord> previous(const Target& target) const;

  // Drops every record with the same targetKey or the same sessionID, puts `record`
  // first, keeps the first kCapacity, and saves. updatedAt is cut to the whole second,
  // as the file keeps it.
  void upsert(SessionRecord record);

  // Drops every record of the conversation and saves, even if there was none.
  void forget(const UUID& sessionID);

  // Blocks until every save so far is on disk (or has failed).
  void flush() { writer_.flush(); }

  // The file's array as records, all or nothing ("item 3: updatedAt: ...").
  [[nodiscard]] static Expected<std::vector<SessionRecord>> decode(const JSONValue& array);
  // The file's text: pretty-printed, keys sorted.
  [[nodiscard]] static std::string encode(const std::vector<SessionRecord>& records);

 private:
  void save();

  std::vector<SessionRecord> records_;
  StoreWriter writer_;
};

}  // namespace zorvane
