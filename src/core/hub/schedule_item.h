// ScheduleItem and ScheduleRun: one stored schedule and one entry of its history, the
// records of "schedules.json" (see ScheduleStore).
//
// An item runs on the clock by its `spec`, unless it has a `trigger` (then it runs on
// events, and `spec` is a placeholder) or a `cloudRoutineID` (then it runs elsewhere and
// never here). Both are plain values compared over every field.
//
// JSON: an object with the field names below as keys; absent optionals are left out
// (and null reads as absent); dates are "2026-05-01T09:30:00Z" (UTC, whole seconds) and
// only that form is read back; `spec` and `trigger` are coded as in schedule.h.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/base/calendar.h"
#include "core/base/expected.h"
#include "core/base/iso8601.h"
#include "core/base/json_value.h"
#include "core/base/uuid.h"
#include "core/hub/schedule.h"

namespace zorvane {

struct ScheduleRun {
  static constexpr size_t kResultLimit = 2000;  // characters kept of `result`

  SystemTime started;                  // for a missed run, when it was due
  std::optional<SystemTime> finished;  // absent on a missed run
  bool ok = false;
  std::string result;

  [[nodiscard]] JSONValue encode() const;
  [[nodiscard]] static Expected<ScheduleRun> decode(const JSONValue& value);

  friend bool operator==(const ScheduleRun&, const ScheduleRun&) = default;
};

struct ScheduleItem {
  static constexpr size_t kLastResultLimit = 500;  // characters kept of `lastResult`
  static constexpr size_t kHistoryLimit = 10;      // runs kept, newest first

  // A new item with no optional field set but `nextRun`, which is the clock rule's next time
  // after `now`.
  ScheduleItem(UUID id, std::string title, std::string prompt, ScheduleSpec spec, bool enabled,
               bool trusted, SystemTime now = std::chrono::system_clock::now(),
               const Calendar& calendar = Calendar::current());

  UUID id;
  std::string title;   // shown to the user; an agent may delete the item by it
  std::string prompt;  // the task sent to the agent
  ScheduleSpec spec;
  bool enabled = true;                              // false: paused
  bool trusted = false;                             // the run may act without asking
  std::optional<SystemTime> lastRun;                // the tick that last handed it out
  std::optional<std::string> lastResult;            // last outcome, or the missed-run text
  std::optional<SystemTime> nextRun;                // absent: not due on the clock
  std::optional<std::vector<ScheduleRun>> history;  // newest first
  std::optional<std::string> agent;                 // an AgentKind id; absent: the hub's choice
  std::optional<ScheduleTrigger> trigger;
  std::optional<std::string> cloudRoutineID;

  // The trigger's text when there is a trigger, else the clock rule's.
  [[nodiscard]] std::string whenText(const Calendar& calendar = Calendar::current()) const;

  [[nodiscard]] JSONValue encode() const;
  // Fails on a missing required key or a wrong type, naming the key ("spec: daily.hour:
  // expected a number, found string", "history[2].ok: missing"); unknown keys are ignored.
  [[nodiscard]] static Expected<ScheduleItem> decode(const JSONValue& value);

  friend bool operator==(const ScheduleItem&, const ScheduleItem&) = default;
};

}  // namespace zorvane
