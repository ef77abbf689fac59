// ScheduleSpec: parsing, texts and the next due time. The trigger is in
// schedule_trigger.cpp and the JSON form of both in schedule_coding.cpp.
#include "core/hub/schedule.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "core/hub/schedule_grammar.h"

namespace zorvane {

namespace chr = std::chrono;
using namespace ScheduleGrammar;

static constexpr int64_t kMinimumMinutes = 5;
static constexpr auto kOncePendingFor = chr::seconds{60};

static constexpr std::array<const char*, 7> kShortDayNames = {"sun", "mon", "tue", "wed",
                                                              "thu", "fri", "sat"};
static constexpr std::array<const char*, 7> kFullDayNames = {
    "Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday"};

static bool isWeekday(int number) {
  return number >= 1 && number <= 7;
}

ScheduleSpec ScheduleSpec::daily(int hour, int minute, std::set<int> weekdays) {
  return ScheduleSpec(Daily{hour, minute, std::move(weekdays)});
}

ScheduleSpec ScheduleSpec::every(int64_t minutes) {
  return ScheduleSpec(Every{minutes});
}

ScheduleSpec ScheduleSpec::once(SystemTime date) {
  return ScheduleSpec(Once{date});
}

const std::map<std::string, int, std::less<>>& ScheduleSpec::dayNames() {
  static const std::map<std::string, int, std::less<>> names = [] {
    std::map<std::string, int, std::less<>> map;
    for (int number = 1; number <= 7; ++number) map.emplace(kShortDayNames[number - 1], number);
    return map;
  }();
  return names;
}

const std::set<int>& ScheduleSpec::workWeek() {
  static const std::set<int> days = {2, 3, 4, 5, 6};
  return days;
}

const std::set<int>& ScheduleSpec::weekend() {
  static const std::set<int> days = {1, 7};
  return days;
}

// ---- parse -------------------------------------------------------------------------

// The numbers among `pieces` that read; overflowing and malformed ones are dropped.
static std::vector<int64_t> readableNumbers(const std::vector<std::string_view>& pieces) {
  std::vector<int64_t> numbers;
  for (std::string_view piece : pieces) {
    IntegerReading reading = readInteger(piece);
    if (reading.status == IntegerReading::Status::number) numbers.push_back(reading.value);
  }
  return numbers;
}

struct ClockTime {
  int hour;
  int minute;
};

// "09:05", "9:5": two numbers, hour 0-23 and minute 0-59.
static std::optional<ClockTime> parseClockTime(std::string_view text) {
  std::vector<int64_t> numbers = readableNumbers(split(text, ":"));
  if (numbers.size() != 2) return std::nullopt;
  if (numbers[0] < 0 || numbers[0] > 23 || numbers[1] < 0 || numbers[1] > 59) return std::nullopt;
  return ClockTime{static_cast<int>(numbers[0]), static_cast<int>(numbers[1])};
}

// "30m" (raised to 5 minutes) or "2h".
static std::optional<ScheduleSpec> parseEvery(std::string_view interval) {
  LastCharacterSplit parts = splitLastCharacter(interval);
  IntegerReading count = readInteger(parts.head);
  if (count.status != IntegerReading::Status::number || count.value < 1) return std::nullopt;
  if (parts.last == "m") return ScheduleSpec::every(std::max(count.value, kMinimumMinutes));
  if (parts.last != "h") return std::nullopt;
  int64_t minutes = 0;
  if (__builtin_mul_overflow(count.value, int64_t{60}, &minutes)) return std::nullopt;
  return ScheduleSpec::every(minutes);
}

// "2026-10-25" and a clock time, as an instant of the calendar.
static std::optional<ScheduleSpec> parseOnce(std::string_view date, std::string_view time,
                                             const Calendar& calendar) {
  std::optional<ClockTime> clock = parseClockTime(time);
  if (!clock) return std::nullopt;
  std::vector<int64_t> numbers = readableNumbers(split(date, "-"));
  if (numbers.size() != 3) return std::nullopt;
  for (int64_t number : numbers) {
    if (number < INT32_MIN || number > INT32_MAX) return std::nullopt;
  }
  LocalDate day{static_cast<int>(numbers[0]), static_cast<int>(numbers[1]),
                static_cast<int>(numbers[2])};
  std::optional<SystemTime> instant = calendar.instant({day, clock->hour, clock->minute, 0});
  if (!instant) return std::nullopt;
  return ScheduleSpec::once(*instant);
}

// "mon,wed,fri": each entry's first three letters name a day; one unknown entry spoils all.
static std::optional<std::set<int>> parseDayList(std::string_view list) {
  std::vector<std::string_view> entries = split(list, ",");
  if (entries.empty()) return std::nullopt;
  std::set<int> days;
  for (std::string_view entry : entries) {
    auto found = ScheduleSpec::dayNames().find(entry.substr(0, 3));
    if (found == ScheduleSpec::dayNames().end()) return std::nullopt;
    days.insert(found->second);
  }
  return days;
}

std::optional<ScheduleSpec> ScheduleSpec::parse(std::string_view text, const Calendar& calendar) {
  std::string lower = lowercased(text);
  std::vector<std::string_view> pieces = split(lower, " ");
  if (pieces.empty()) return std::nullopt;
  std::string_view first = pieces[0];

  if (first == "every") {
    if (pieces.size() != 2) return std::nullopt;
    return parseEvery(pieces[1]);
  }
  if (first == "once") {
    if (pieces.size() != 3) return std::nullopt;
    return parseOnce(pieces[1], pieces[2], calendar);
  }
  if (pieces.size() != 2) return std::nullopt;

  std::optional<std::set<int>> days;
  if (first == "daily") {
    days = std::set<int>{};
  } else if (first == "weekdays") {
    days = workWeek();
  } else if (first == "weekends") {
    days = weekend();
  } else {
    days = parseDayList(first);
  }
  if (!days) return std::nullopt;
  std::optional<ClockTime> clock = parseClockTime(pieces[1]);
  if (!clock) return std::nullopt;
  return daily(clock->hour, clock->minute, std::move(*days));
}

// ---- texts -------------------------------------------------------------------------

static std::string clockText(int hour, int minute) {
  char text[32];
  std::snprintf(text, sizeof text, "%02d:%02d", hour, minute);
  return text;
}

// The names of the valid members of `days`, ascending, joined by `separator`.
static std::string joinedDayNames(const std::set<int>& days,
                                  const std::array<const char*, 7>& names,
                                  std::string_view separator) {
  std::string joined;
  for (int day : days) {
    if (!isWeekday(day)) continue;
    if (!joined.empty()) joined += separator;
    joined += names[day - 1];
  }
  return joined;
}

std::string ScheduleSpec::text(const Calendar& calendar) const {
  if (const auto* every = std::get_if<Every>(&payload_)) {
    return "every " + intervalText(every->minutes);
  }
  if (const auto* once = std::get_if<Once>(&payload_)) {
    return "once " + calendar.minuteText(once->date);
  }
  const auto& daily = std::get<Daily>(payload_);
  std::string time = clockText(daily.hour, daily.minute);
  if (daily.weekdays.empty()) return "daily " + time;
  if (daily.weekdays == workWeek()) return "weekdays " + time;
  if (daily.weekdays == weekend()) return "weekends " + time;
  std::string days = joinedDayNames(daily.weekdays, kShortDayNames, ",");
  if (days.empty()) return "never " + time;
  return days + " " + time;
}

std::string ScheduleSpec::humanText(const Calendar& calendar) const {
  if (const auto* every = std::get_if<Every>(&payload_)) {
    if (every->minutes % 60 != 0) return "every " + std::to_string(every->minutes) + " minutes";
    std::string text = "every " + std::to_string(every->minutes / 60) + " hour";
    if (every->minutes != 60) text += "s";
    return text;
  }
  if (const auto* once = std::get_if<Once>(&payload_)) {
    return "once at " + calendar.fullDateShortTime(once->date);
  }
  const auto& daily = std::get<Daily>(payload_);
  std::string time = clockText(daily.hour, daily.minute);
  if (daily.weekdays.empty()) return "every day at " + time;
  if (daily.weekdays == workWeek()) return "every weekday (Mon\u2013Fri) at " + time;
  std::string days = joinedDayNames(daily.weekdays, kFullDayNames, ", ");
  if (days.empty()) return "never";
  return "every " + days + " at " + time;
}

// ---- next --------------------------------------------------------------------------

// The clock's range as the stores can write and read it back: whole seconds, and one
// second short of the end (see parseISO8601).
static SystemTime latestInstant() {
  return chr::floor<chr::seconds>(SystemTime::max()) - chr::seconds{1};
}
static SystemTime earliestInstant() {
  return chr::ceil<chr::seconds>(SystemTime::min());
}

// `base` plus `minutes`, held inside the range above rather than overflowing.
static SystemTime addingMinutes(SystemTime base, int64_t minutes) {
  using Ticks = SystemTime::duration;
  constexpr int64_t ticksPerMinute = chr::duration_cast<Ticks>(chr::minutes{1}).count();
  int64_t ticks = 0;
  int64_t sum = 0;
  if (__builtin_mul_overflow(minutes, ticksPerMinute, &ticks) ||
      __builtin_add_overflow(base.time_since_epoch().count(), ticks, &sum)) {
    return minutes > 0 ? latestInstant() : earliestInstant();
  }
  SystemTime result{Ticks{sum}};
  return std::clamp(result, earliestInstant(), latestInstant());
}

static std::optional<SystemTime> nextDaily(const ScheduleSpec::Daily& daily, SystemTime after,
                                           const Calendar& calendar) {
  LocalDate today = calendar.localTime(after).date;
  // Today and the next seven days: a weekly rule that just ran finds its day again on
  // the eighth.
  for (int offset = 0; offset < 8; ++offset) {
    LocalDate day = today.addingDays(offset);
    std::optional<SystemTime> candidate = calendar.instant({day, daily.hour, daily.minute, 0});
    if (!candidate) return std::nullopt;
    if (*candidate <= after) continue;
    if (daily.weekdays.empty() || daily.weekdays.contains(day.weekday())) return candidate;
  }
  return std::nullopt;
}

std::optional<SystemTime> ScheduleSpec::next(SystemTime after, std::optional<SystemTime> lastRun,
                                             const Calendar& calendar) const {
  if (const auto* every = std::get_if<Every>(&payload_)) {
    // An interval of no time (only code can make one) would be due at every tick.
    if (every->minutes < 1) return std::nullopt;
    return addingMinutes(lastRun.value_or(after), every->minutes);
  }
  if (const auto* once = std::get_if<Once>(&payload_)) {
    if (lastRun) return std::nullopt;
    if (once->date > after) return once->date;
    // Still pending while less than a minute late. after - date is not negative here;
    // it only overflows when the date is centuries old.
    int64_t late = 0;
    if (__builtin_sub_overflow(after.time_since_epoch().count(),
                               once->date.time_since_epoch().count(), &late)) {
      return std::nullopt;
    }
    if (SystemTime::duration{late} < kOncePendingFor) return once->date;
    return std::nullopt;
  }
  return nextDaily(std::get<Daily>(payload_), after, calendar);
}

}  // namespace zorvane
