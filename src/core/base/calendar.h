// Calendar: the Gregorian calendar in one time zone, for turning instants into wall
// clock dates and back.
//
// A zone is named by its IANA identifier ("Europe/Berlin") and read from the system's
// time-zone database (/usr/share/zoneinfo), so daylight-saving rules are those of the
// installed tzdata. `Calendar::current()` is the user's zone: $TZ when it names a zone,
// else /etc/localtime, else UTC. Tests pin a zone with `Calendar::named(...)`.
//
//   Calendar berlin = *Calendar::named("Europe/Berlin");
//   LocalDateTime wall = berlin.localTime(now);             // 2026-03-29 03:30:00
//   std::optional<SystemTime> at = berlin.instant(wall);    // back to `now`, whole seconds
//
// Wall times that a daylight-saving change makes nonexistent or ambiguous resolve as
// follows, and never fail:
//   - a time in a gap (02:30 on a spring-forward night in Berlin) is read with the
//     offset in force before the gap, so it lands as far past the gap's start as it
//     was meant to be (02:30 CET = 01:30 UTC = 03:30 CEST);
//   - a time that occurs twice (02:30 on a fall-back night in Berlin) is the earlier
//     of the two (02:30 CEST).
//
// A Calendar is a small value: copies share the zone's data, which the library loads
// once per process and never frees. Every member is const and safe from any thread.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "core/base/iso8601.h"

namespace zorvane {

// A date on the calendar, without a zone. Month 1-12, day 1-31.
struct LocalDate {
  int year = 1970;
  int month = 1;
  int day = 1;

  // Whether the date exists (no February 30th, years -32767 to 32767).
  [[nodiscard]] bool isValid() const;

  // The date `days` later (earlier when negative), by the calendar, so month and year
  // ends roll over. The date must be valid.
  [[nodiscard]] LocalDate addingDays(int days) const;

  // 1 Sunday, 2 Monday, ... 7 Saturday; 0 for an invalid date.
  [[nodiscard]] int weekday() const;

  friend bool operator==(const LocalDate&, const LocalDate&) = default;
};

// A wall-clock time on a date. Hour 0-23, minute and second 0-59.
struct LocalDateTime {
  LocalDate date;
  int hour = 0;
  int minute = 0;
  int second = 0;

  friend bool operator==(const LocalDateTime&, const LocalDateTime&) = default;
};

class Calendar {
 public:
  // The user's zone, read anew at each call: $TZ when set ("" is UTC, a leading ":"
  // and a path into the zoneinfo folder are accepted), else /etc/localtime. A value
  // neither of them can name (a POSIX rule string, a zone that isn't installed) falls
  // back to the next source, and finally to UTC.
  [[nodiscard]] static Calendar current();

  [[nodiscard]] static Calendar utc();

  // The zone with this IANA identifier, or a path to it under a "zoneinfo/" folder.
  // Absent for a name the database doesn't hold; names are case-sensitive.
  [[nodiscard]] static std::optional<Calendar> named(std::string_view identifier);

  // The zone's identifier as the database spells it ("America/New_York").
  [[nodiscard]] const std::string& identifier() const;

  // The wall-clock time at `time`, fractions of a second dropped.
  [[nodiscard]] LocalDateTime localTime(SystemTime time) const;

  // The instant at that wall-clock time (see the header comment for gaps and
  // repeats). Absent for an invalid date or time, or one outside the clock's range.
  [[nodiscard]] std::optional<SystemTime> instant(const LocalDateTime& wall) const;

  // Texts of an instant in this zone, in English:
  //   "2026-10-25 14:00"                        (minuteText)
  //   "Sunday, October 25, 2026 at 2:00 PM"     (fullDateShortTime)
  //   "Oct 25, 2026 at 2:00 PM"                 (abbreviatedDateShortTime)
  [[nodiscard]] std::string minuteText(SystemTime time) const;
  [[nodiscard]] std::string fullDateShortTime(SystemTime time) const;
  [[nodiscard]] std::string abbreviatedDateShortTime(SystemTime time) const;

  friend bool operator==(const Calendar& a, const Calendar& b) {
    return a.identifier() == b.identifier();
  }

  struct Zone;  // the library's zone; defined in calendar.cpp

 private:
  explicit Calendar(std::shared_ptr<const Zone> zone) : zone_(std::move(zone)) {}
  std::shared_ptr<const Zone> zone_;
};

}  // namespace zorvane
