#include "core/base/calendar.h"

#include <date/tz.h>

#include <cstdio>
#include <cstdlib>
#include <exception>

namespace zorvane {

namespace chr = std::chrono;

// A zone of the database, or fixed UTC when `zone` is null (which also covers a
// machine without tzdata).
struct Calendar::Zone {
  const date::time_zone* zone = nullptr;
  std::string identifier;
};

static constexpr std::string_view kUTC = "UTC";

// ---- LocalDate ---------------------------------------------------------------------

static date::year_month_day toYMD(const LocalDate& date) {
  return date::year{date.year} / date::month{static_cast<unsigned>(date.month)} /
         date::day{static_cast<unsigned>(date.day)};
}

static LocalDate fromYMD(const date::year_month_day& ymd) {
  return {static_cast<int>(ymd.year()), static_cast<int>(static_cast<unsigned>(ymd.month())),
          static_cast<int>(static_cast<unsigned>(ymd.day()))};
}

bool LocalDate::isValid() const {
  // Checked before the conversion: date::month and date::day keep only a byte.
  if (year < -32767 || year > 32767 || month < 1 || month > 12 || day < 1 || day > 31) return false;
  return toYMD(*this).ok();
}

LocalDate LocalDate::addingDays(int days) const {
  if (!isValid()) return *this;
  return fromYMD(date::year_month_day{date::sys_days{toYMD(*this)} + date::days{days}});
}

int LocalDate::weekday() const {
  if (!isValid()) return 0;
  return static_cast<int>(date::weekday{date::sys_days{toYMD(*this)}}.c_encoding()) + 1;
}

// ---- Calendar ----------------------------------------------------------------------

static std::shared_ptr<const Calendar::Zone> databaseZone(const date::time_zone* zone) {
  return std::make_shared<const Calendar::Zone>(Calendar::Zone{zone, std::string(zone->name())});
}

Calendar Calendar::utc() {
  try {
    return Calendar(databaseZone(date::locate_zone(std::string(kUTC))));
  } catch (const std::exception&) {
    return Calendar(std::make_shared<const Zone>(Zone{nullptr, std::string(kUTC)}));
  }
}

std::optional<Calendar> Calendar::named(std::string_view identifier) {
  // "/usr/share/zoneinfo/Europe/Berlin" names "Europe/Berlin".
  static constexpr std::string_view kZoneFolder = "zoneinfo/";
  if (!identifier.empty() && identifier.front() == '/') {
    size_t folder = identifier.rfind(kZoneFolder);
    if (folder == std::string_view::npos) return std::nullopt;
    identifier.remove_prefix(folder + kZoneFolder.size());
  }
  if (identifier.empty()) return std::nullopt;
  try {
    return Calendar(databaseZone(date::locate_zone(std::string(identifier))));
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

Calendar Calendar::current() {
  if (const char* variable = std::getenv("TZ")) {
    std::string_view value = variable;
    if (value.empty()) return utc();  // as the C library reads an empty TZ
    if (value.front() == ':') value.remove_prefix(1);
    if (auto calendar = named(value)) return *calendar;
  }
  try {
    return Calendar(databaseZone(date::current_zone()));
  } catch (const std::exception&) {
    return utc();
  }
}

const std::string& Calendar::identifier() const {
  return zone_->identifier;
}

LocalDateTime Calendar::localTime(SystemTime time) const {
  chr::sys_seconds utcSeconds = chr::floor<chr::seconds>(time);
  date::local_seconds local{utcSeconds.time_since_epoch()};
  if (zone_->zone != nullptr) {
    try {
      local = zone_->zone->to_local(utcSeconds);
    } catch (const std::exception&) {
      // The zone's file went unreadable after it was found: show UTC rather than fail.
    }
  }
  auto days = chr::floor<date::days>(local);
  date::hh_mm_ss<chr::seconds> clock{local - days};
  return {fromYMD(date::year_month_day{days}), static_cast<int>(clock.hours().count()),
          static_cast<int>(clock.minutes().count()), static_cast<int>(clock.seconds().count())};
}

std::optional<SystemTime> Calendar::instant(const LocalDateTime& wall) const {
  if (!wall.date.isValid() || wall.hour < 0 || wall.hour > 23 || wall.minute < 0 ||
      wall.minute > 59 || wall.second < 0 || wall.second > 59) {
    return std::nullopt;
  }
  date::local_seconds local = date::local_days{toYMD(wall.date)} + chr::hours{wall.hour} +
                              chr::minutes{wall.minute} + chr::seconds{wall.second};
  chr::seconds offset{0};
  if (zone_->zone != nullptr) {
    try {
      // For a unique time `first` is its only offset; in a gap it is the offset before
      // the gap; for a repeated time it is the earlier occurrence's. One rule covers all.
      offset = zone_->zone->get_info(local).first.offset;
    } catch (const std::exception&) {
      return std::nullopt;
    }
  }
  chr::sys_seconds utcSeconds{local.time_since_epoch() - offset};
  // The clock counts nanoseconds, so it reaches only some 292 years either side of 1970.
  auto earliest = chr::ceil<chr::seconds>(SystemTime::min());
  auto latest = chr::floor<chr::seconds>(SystemTime::max());
  if (utcSeconds < earliest || utcSeconds > latest) return std::nullopt;
  return chr::time_point_cast<SystemTime::duration>(utcSeconds);
}

static constexpr const char* kMonthNames[] = {"January",   "February", "March",    "April",
                                              "May",       "June",     "July",     "August",
                                              "September", "October",  "November", "December"};
static constexpr const char* kWeekdayNames[] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                                "Thursday", "Friday", "Saturday"};

// "2:00 PM"
static std::string shortTime(const LocalDateTime& wall) {
  int hour12 = wall.hour % 12 == 0 ? 12 : wall.hour % 12;
  char text[16];
  std::snprintf(text, sizeof text, "%d:%02d %s", hour12, wall.minute, wall.hour < 12 ? "AM" : "PM");
  return text;
}

static std::string monthName(const LocalDateTime& wall) {
  return kMonthNames[wall.date.month - 1];
}

std::string Calendar::minuteText(SystemTime time) const {
  LocalDateTime wall = localTime(time);
  char text[48];
  std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d", wall.date.year, wall.date.month,
                wall.date.day, wall.hour, wall.minute);
  return text;
}

std::string Calendar::fullDateShortTime(SystemTime time) const {
  LocalDateTime wall = localTime(time);
  return std::string(kWeekdayNames[wall.date.weekday() - 1]) + ", " + monthName(wall) + " " +
         std::to_string(wall.date.day) + ", " + std::to_string(wall.date.year) + " at " +
         shortTime(wall);
}

std::string Calendar::abbreviatedDateShortTime(SystemTime time) const {
  LocalDateTime wall = localTime(time);
  return monthName(wall).substr(0, 3) + " " + std::to_string(wall.date.day) + ", " +
         std::to_string(wall.date.year) + " at " + shortTime(wall);
}

}  // namespace zorvane
