// ScheduleStore: the list of schedules and its file, "schedules.json" in the data folder.
// It decides at each tick of the hub which items are due and which were missed, and
// keeps their next times; the hub runs what `takeDue` hands out and reports back with
// `record`. It knows nothing of agents.
//
// The file is a JSON array of ScheduleItem objects (schedule_item.h), pretty-printed with
// sorted keys. It is read once, by the constructor, and written through after every
// change, synchronously and atomically under the store's lock (StoreFile::save); a failed
// save is logged and the items in memory stand. Loading is all or nothing: a missing
// file is empty, and so is one with a single item that doesn't decode; such a file is
// moved aside to "schedules.json.corrupt" and logged, never overwritten by the next save.
//
// The catch-up rule: an item whose time came while the machine slept or the program
// wasn't running still runs when `takeDue` finds it at most `grace` late (exactly
// `grace` still runs). Later than that it is missed: it doesn't run, its history and
// `lastResult` say so, and it moves on to its next future time. However long the sleep,
// an item is missed at most once per tick, so one history entry stands for it.
//
// No lock: a ScheduleStore belongs to the main thread.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/base/calendar.h"
#include "core/base/expected.h"
#include "core/base/json_value.h"
#include "core/hub/schedule_item.h"

namespace zorvane {

class ScheduleStore {
 public:
  using Clock = std::function<SystemTime()>;

  // Reads the file at `url` (a file path); any failure leaves the store empty. `clock`
  // gives the finish time of a recorded run (default: the system clock); `calendar`
  // pins the zone of the next times and the missed-run text (default:
  // Calendar::current() at each use, so a change of the user's zone is followed).
  explicit ScheduleStore(std::string url, Clock clock = {}, std::optional<Calendar> calendar = {});

  // "schedules.json" in Paths::dataDirectory().
  [[nodiscard]] static std::string defaultURL();

  [[nodiscard]] const std::string& url() const { return url_; }
  // In store order.
  [[nodiscard]] const std::vector<ScheduleItem>& items() const { return items_; }
  // The first item with this id; null when there is none. Valid until the next change.
  [[nodiscard]] const ScheduleItem* item(const UUID& id) const;

  // Replaces the first item with the same id in place, or appends it; then saves.
  void upsert(ScheduleItem item);

  // Removes every item with this id, and saves even when none was there.
  void remove(const UUID& id);

  // The enabled clock items (no trigger, no cloud routine) whose nextRun has come, in
  // store order, as they were before this call: each is to be run now. Each one found,
  // run or missed (more than `grace` late), gets its nextRun from this tick; a `once`
  // item is then disabled. Saves once when any item was found, else writes nothing.
  [[nodiscard]] std::vector<ScheduleItem> takeDue(SystemTime now, std::chrono::seconds grace);

  // Writes the outcome of a run: lastResult (first 500 characters) and a history entry
  // (first 2000), newest first, at most 10 kept; `started` defaults to now. lastRun and
  // nextRun don't move. An unknown id (deleted while it ran) changes and writes nothing.
  void record(const UUID& id, std::string_view result, bool ok,
              std::optional<SystemTime> started = std::nullopt);

  // "Missed Oct 25, 2026 at 2:00 PM (this computer was asleep or Zorvane wasn't running)"
  [[nodiscard]] static std::string missedText(SystemTime due, const Calendar& calendar);

  // The file's content and its reading, all items or a failure naming the first bad one.
  [[nodiscard]] static std::string encodeItems(const std::vector<ScheduleItem>& items);
  [[nodiscard]] static Expected<std::vector<ScheduleItem>> decodeItems(const JSONValue& array);

 private:
  [[nodiscard]] Calendar calendar() const;
  [[nodiscard]] SystemTime now() const;
  void save() const;

  std::string url_;
  Clock clock_;
  std::optional<Calendar> calendar_;
  std::vector<ScheduleItem> items_;
};

}  // namespace zorvane
