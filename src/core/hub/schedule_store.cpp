#include "core/hub/schedule_store.h"

#include <algorithm>

#include "core/base/engine_words.h"
#include "core/base/log.h"
#include "core/base/paths.h"
#include "core/base/store_file.h"
#include "core/base/utf8.h"
#include "core/registry/store_coding.h"

namespace zorvane {

namespace chr = std::chrono;

ScheduleStore::ScheduleStore(std::string url, Clock clock, std::optional<Calendar> calendar)
    : url_(std::move(url)), clock_(std::move(clock)), calendar_(std::move(calendar)) {
  StoreCoding::loadRecords(url_, [&](const JSONValue& array) -> Expected<void> {
    Expected<std::vector<ScheduleItem>> decoded = decodeItems(array);
    if (!decoded) return Failure{decoded.error()};
    items_ = std::move(*decoded);
    return ok();
  });
}

std::string ScheduleStore::defaultURL() {
  return Paths::dataDirectory() + "/schedules.json";
}

const ScheduleItem* ScheduleStore::item(const UUID& id) const {
  auto found = std::find_if(items_.begin(), items_.end(),
                            [&](const ScheduleItem& item) { return item.id == id; });
  return found == items_.end() ? nullptr : &*found;
}

void ScheduleStore::upsert(ScheduleItem item) {
  auto found = std::find_if(items_.begin(), items_.end(),
                            [&](const ScheduleItem& existing) { return existing.id == item.id; });
  if (found == items_.end()) {
    items_.push_back(std::move(item));
  } else {
    *found = std::move(item);
  }
  save();
}

void ScheduleStore::remove(const UUID& id) {
  std::erase_if(items_, [&](const ScheduleItem& item) { return item.id == id; });
  save();
}

// Puts `run` first and keeps the newest kHistoryLimit.
static void prependRun(ScheduleItem& item, ScheduleRun run) {
  std::vector<ScheduleRun>& history = item.history ? *item.history : item.history.emplace();
  history.insert(history.begin(), std::move(run));
  if (history.size() > ScheduleItem::kHistoryLimit) history.resize(ScheduleItem::kHistoryLimit);
}

// Whether `due` lies more than `grace` before `now` (`due` is not after `now`). A gap
// too wide for the clock's ticks is centuries, and certainly more.
static bool isPastGrace(SystemTime now, SystemTime due, chr::seconds grace) {
  int64_t late = 0;
  if (__builtin_sub_overflow(now.time_since_epoch().count(), due.time_since_epoch().count(),
                             &late)) {
    return true;
  }
  return SystemTime::duration{late} > grace;
}

std::vector<ScheduleItem> ScheduleStore::takeDue(SystemTime now, chr::seconds grace) {
  std::vector<ScheduleItem> due;
  bool found = false;
  Calendar zone = calendar();
  for (ScheduleItem& item : items_) {
    if (!item.enabled || item.trigger || item.cloudRoutineID || !item.nextRun ||
        *item.nextRun > now) {
      continue;
    }
    found = true;
    SystemTime dueAt = *item.nextRun;
    if (isPastGrace(now, dueAt, grace)) {
      std::string text = missedText(dueAt, zone);
      item.lastResult = text;
      prependRun(item, ScheduleRun{dueAt, std::nullopt, false, std::move(text)});
    } else {
      due.push_back(item);
      item.lastRun = now;
    }
    // From this tick on, not from the missed time: a long sleep costs one miss, and an
    // interval continues from now.
    item.nextRun = item.spec.next(now, now, zone);
    if (item.spec.kind() == ScheduleSpec::Kind::once) {
      item.enabled = false;
      item.nextRun.reset();
    }
  }
  if (found) save();
  return due;
}

void ScheduleStore::record(const UUID& id, std::string_view result, bool ok,
                           std::optional<SystemTime> started) {
  auto found = std::find_if(items_.begin(), items_.end(),
                            [&](const ScheduleItem& item) { return item.id == id; });
  if (found == items_.end()) return;
  SystemTime finished = now();
  found->lastResult = utf8Prefix(result, ScheduleItem::kLastResultLimit);
  prependRun(*found, ScheduleRun{started.value_or(finished), finished, ok,
                                 utf8Prefix(result, ScheduleRun::kResultLimit)});
  save();
}

std::string ScheduleStore::missedText(SystemTime due, const Calendar& calendar) {
  return "Missed " + calendar.abbreviatedDateShortTime(due) + " (" +
         std::string(PlatformWords::thisComputer) + " was asleep or Zorvane wasn't running)";
}

std::string ScheduleStore::encodeItems(const std::vector<ScheduleItem>& items) {
  JSONValue array = JSONValue::array();
  for (const ScheduleItem& item : items) array.push_back(item.encode());
  return encodePretty(array);
}

Expected<std::vector<ScheduleItem>> ScheduleStore::decodeItems(const JSONValue& array) {
  return StoreCoding::decodeArray<ScheduleItem>(array, &ScheduleItem::decode);
}

Calendar ScheduleStore::calendar() const {
  return calendar_ ? *calendar_ : Calendar::current();
}

// Whole seconds, as the file keeps them, so what is in memory reads back equal.
SystemTime ScheduleStore::now() const {
  SystemTime time = clock_ ? clock_() : chr::system_clock::now();
  return chr::floor<chr::seconds>(time);
}

void ScheduleStore::save() const {
  Expected<void> saved = StoreFile::save(url_, encodeItems(items_));
  if (!saved)
    Log::info("store " + url_ + ": couldn't save (" + saved.error() +
              "); the items stay in memory");
}

}  // namespace zorvane
