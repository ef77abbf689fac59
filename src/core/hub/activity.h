// ActivityEvent and ActivityStore: the plain record of what the program did on the
// user's behalf (messages between pieces, approvals, schedule runs, skills, pieces bonded
// and retired, triggers fired), one line each, kept in "activity.json" in the data folder.
//
// The file is a JSON array of events, newest first, compact (one line), dates UTC with
// whole seconds and read back in that form only. It holds at most `kCapacity` events;
// each add rewrites it whole, on the store's writer thread (see StoreWriter), so the
// caller only copies the events.
//
// Loading is all or nothing: a missing file is empty, and so is one with a single event
// that doesn't decode (an unknown kind, a date in another form); such a file, like one
// that can't be read, is moved aside to "activity.json.corrupt" and logged, never
// overwritten by the next add.
//
// No lock: an ActivityStore belongs to the main thread. Writers elsewhere go through
// ActivityLog (activity_log.h).
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "core/base/expected.h"
#include "core/base/iso8601.h"
#include "core/base/json_value.h"
#include "core/base/uuid.h"
#include "core/registry/store_writer.h"
#include "core/targets/browser_app.h"

namespace zorvane {

struct ActivityEvent {
  // Raw values, in this order: "message", "reply", "approval", "schedule", "skill",
  // "piece", "trigger".
  enum class Kind { message, reply, approval, schedule, skill, piece, trigger };

  UUID id;
  SystemTime date;  // whole seconds, as stored
  Kind kind = Kind::message;
  std::string actor;  // who did it, as the list shows it
  std::string text;   // what happened
  std::optional<bool> ok;  // the outcome, where one applies

  // A new event: a fresh id, and now (to the second) as its date.
  ActivityEvent(Kind kind, std::string actor, std::string text, std::optional<bool> ok = std::nullopt);
  // An event as it was stored.
  ActivityEvent(UUID id, SystemTime date, Kind kind, std::string actor, std::string text,
                std::optional<bool> ok);

  // The object of the file; `ok` is left out when absent.
  [[nodiscard]] JSONValue encode() const;
  // Fails on a missing key, a wrong type or an unknown kind, naming the key
  // ("kind: unknown kind \"note\""). Unknown keys are ignored; a null `ok` is absent.
  [[nodiscard]] static Expected<ActivityEvent> decode(const JSONValue& value);

  friend bool operator==(const ActivityEvent&, const ActivityEvent&) = default;
};

template <>
std::span<const ActivityEvent::Kind> allCases<ActivityEvent::Kind>();
template <>
std::optional<ActivityEvent::Kind> fromRawValue<ActivityEvent::Kind>(std::string_view rawValue);
[[nodiscard]] std::string_view rawValue(ActivityEvent::Kind kind);

class ActivityStore {
 public:
  static constexpr size_t kCapacity = 500;

  // Reads the file at `url` (a file path); any failure leaves the store empty.
  explicit ActivityStore(std::string url);

  // "activity.json" in Paths::dataDirectory().
  [[nodiscard]] static std::string defaultURL();

  [[nodiscard]] const std::string& url() const { return writer_.path(); }
  // Newest first.
  [[nodiscard]] const std::vector<ActivityEvent>& events() const { return events_; }

  // Puts the event first, drops the oldest beyond kCapacity, and saves.
  void add(ActivityEvent event);

  // Blocks until every save so far is on disk (or has failed).
  void flush() { writer_.flush(); }

  // The file's array as events, all or nothing ("item 2: kind: ...").
  [[nodiscard]] static Expected<std::vector<ActivityEvent>> decode(const JSONValue& array);
  // The file's text: compact, one line.
  [[nodiscard]] static std::string encode(const std::vector<ActivityEvent>& events);

 private:
  std::vector<ActivityEvent> events_;
  StoreWriter writer_;
};

}  // namespace zorvane
