#include "core/base/calendar.h"

#include <gtest/gtest.h>

#include "support/time_support.h"
#include <unistd.h>

#include <climits>

#include "support/test_support.h"

namespace zorvane {

[[maybe_unused]] static void PrintTo(const LocalDateTime& wall, std::ostream* out) {
  *out << wall.date.year << "-" << wall.date.month << "-" << wall.date.day << " " << wall.hour
       << ":" << wall.minute << ":" << wall.second;
}

namespace {

using testing::at;
using testing::zone;

// The zone /etc/localtime links to, as the system reads it; absent when it isn't a link.
std::optional<std::string> systemZoneName() {
  char target[PATH_MAX];
  ssize_t length = readlink("/etc/localtime", target, sizeof target - 1);
  if (length <= 0) return std::nullopt;
  std::string path(target, static_cast<size_t>(length));
  size_t folder = path.rfind("zoneinfo/");
  if (folder == std::string::npos) return std::nullopt;
  return path.substr(folder + 9);
}

// Zones are found by IANA name or by their path under zoneinfo; anything else is absent.
// The user's zone is $TZ when it names one (an empty TZ is UTC, as for the C library),
// else the system's /etc/localtime.
TEST(Calendar, NamesZonesAndFollowsTZThenTheSystemZone) {
  EXPECT_EQ(zone("Europe/Berlin").identifier(), "Europe/Berlin");
  EXPECT_EQ(Calendar::named("/usr/share/zoneinfo/America/New_York")->identifier(),
            "America/New_York");
  for (const char* bad :
       {"", "Nope/Zone", "europe/berlin", "/etc/passwd", "CET-1CEST,M3.5.0,M10.5.0/3"}) {
    SCOPED_TRACE(bad);
    EXPECT_FALSE(Calendar::named(bad).has_value());
  }

  std::string systemZone;
  {
    testing::ScopedEnv unset("TZ", std::nullopt);
    systemZone = Calendar::current().identifier();
  }
  if (auto linked = systemZoneName()) {
    EXPECT_EQ(systemZone, *linked);
  }
  const std::pair<const char*, std::string> cases[] = {
      {"Asia/Tokyo", "Asia/Tokyo"},
      {":Europe/Berlin", "Europe/Berlin"},
      {"/usr/share/zoneinfo/America/New_York", "America/New_York"},
      {"", "UTC"},
      {"Nope/Zone", systemZone},
      {"CET-1CEST,M3.5.0,M10.5.0/3", systemZone},
  };
  for (const auto& [tz, expected] : cases) {
    SCOPED_TRACE(tz);
    testing::ScopedEnv scoped("TZ", tz);
    EXPECT_EQ(Calendar::current().identifier(), expected);
  }
}

// Wall times resolve to instants, including the two hard cases of a daylight-saving
// change: a time in the spring gap is read with the offset from before the gap, and a
// time that the autumn repeats is its first occurrence.
TEST(Calendar, ResolvesWallTimesAcrossDaylightSavingChanges) {
  struct Case {
    const char* zone;
    LocalDateTime wall;
    const char* instant;
    LocalDateTime readBack;  // what localTime shows at that instant
  };
  const Case cases[] = {
      // An ordinary winter day: CET (+1).
      {"Europe/Berlin",
       {{2026, 1, 15}, 12, 0, 0},
       "2026-01-15T11:00:00Z",
       {{2026, 1, 15}, 12, 0, 0}},
      // Berlin springs from 02:00 CET to 03:00 CEST on 29 March 2026: 02:30 doesn't exist.
      // Read as CET (+1) it is 01:30Z, which the clocks show as 03:30 CEST.
      {"Europe/Berlin",
       {{2026, 3, 29}, 2, 30, 0},
       "2026-03-29T01:30:00Z",
       {{2026, 3, 29}, 3, 30, 0}},
      // Berlin falls from 03:00 CEST to 02:00 CET on 25 October 2026: 02:30 happens twice,
      // first as CEST (+2) = 00:30Z.
      {"Europe/Berlin",
       {{2026, 10, 25}, 2, 30, 0},
       "2026-10-25T00:30:00Z",
       {{2026, 10, 25}, 2, 30, 0}},
      // New York springs from 02:00 EST to 03:00 EDT on 8 March 2026: 02:30 read as EST
      // (-5) is 07:30Z = 03:30 EDT.
      {"America/New_York",
       {{2026, 3, 8}, 2, 30, 0},
       "2026-03-08T07:30:00Z",
       {{2026, 3, 8}, 3, 30, 0}},
      // New York falls from 02:00 EDT to 01:00 EST on 1 November 2026: 01:30 happens
      // twice, first as EDT (-4) = 05:30Z.
      {"America/New_York",
       {{2026, 11, 1}, 1, 30, 0},
       "2026-11-01T05:30:00Z",
       {{2026, 11, 1}, 1, 30, 0}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.zone) + " " + c.instant);
    Calendar calendar = zone(c.zone);
    std::optional<SystemTime> instant = calendar.instant(c.wall);
    ASSERT_TRUE(instant.has_value());
    EXPECT_EQ(formatISO8601(*instant), c.instant);
    EXPECT_EQ(calendar.localTime(*instant), c.readBack);
  }
  // The second 02:30 of Berlin's autumn night is a real instant and reads as 02:30 too.
  EXPECT_EQ(zone("Europe/Berlin").localTime(at("2026-10-25T01:30:00Z")),
            (LocalDateTime{{2026, 10, 25}, 2, 30, 0}));
}

// Dates and times that don't exist, or that the clock can't hold, have no instant.
TEST(Calendar, HasNoInstantForImpossibleWallTimes) {
  Calendar berlin = zone("Europe/Berlin");
  const LocalDateTime bad[] = {
      {{2026, 2, 29}, 9, 0, 0}, {{2026, 4, 31}, 9, 0, 0}, {{2026, 13, 1}, 9, 0, 0},
      {{2026, 0, 1}, 9, 0, 0},  {{2026, 1, 0}, 9, 0, 0},  {{2026, 1, 1}, 24, 0, 0},
      {{2026, 1, 1}, 9, 60, 0}, {{2026, 1, 1}, -1, 0, 0}, {{2026, 1, 1}, 9, 0, 60},
      {{2300, 1, 1}, 9, 0, 0},  {{1600, 1, 1}, 9, 0, 0},  {{INT_MAX, 1, 1}, 9, 0, 0},
  };
  for (const LocalDateTime& wall : bad) {
    SCOPED_TRACE(::testing::PrintToString(wall));
    EXPECT_FALSE(berlin.instant(wall).has_value());
  }
  EXPECT_TRUE(berlin.instant({{2024, 2, 29}, 9, 0, 0}).has_value()) << "a leap day exists";
}

// Calendar days roll over months, years and leap days; weekdays count from Sunday = 1.
TEST(Calendar, CountsDaysAndWeekdays) {
  EXPECT_EQ((LocalDate{2024, 2, 28}.addingDays(1)), (LocalDate{2024, 2, 29}));
  EXPECT_EQ((LocalDate{2026, 2, 28}.addingDays(1)), (LocalDate{2026, 3, 1}));
  EXPECT_EQ((LocalDate{2026, 1, 1}.addingDays(-1)), (LocalDate{2025, 12, 31}));
  EXPECT_EQ((LocalDate{2026, 10, 25}.weekday()), 1) << "Sunday";
  EXPECT_EQ((LocalDate{2026, 10, 31}.weekday()), 7) << "Saturday";
  EXPECT_EQ((LocalDate{2026, 2, 30}.weekday()), 0) << "no such day";
}

// The three texts of an instant, in the calendar's zone, with 12-hour times.
TEST(Calendar, FormatsInstantsInItsZone) {
  Calendar berlin = zone("Europe/Berlin");
  SystemTime afternoon = at("2026-10-25T13:00:00Z");
  EXPECT_EQ(berlin.minuteText(afternoon), "2026-10-25 14:00");
  EXPECT_EQ(berlin.fullDateShortTime(afternoon), "Sunday, October 25, 2026 at 2:00 PM");
  EXPECT_EQ(berlin.abbreviatedDateShortTime(afternoon), "Oct 25, 2026 at 2:00 PM");
  EXPECT_EQ(berlin.abbreviatedDateShortTime(at("2026-03-01T23:05:00Z")), "Mar 2, 2026 at 12:05 AM");
  EXPECT_EQ(zone("America/New_York").fullDateShortTime(at("2026-07-04T16:00:00Z")),
            "Saturday, July 4, 2026 at 12:00 PM");
}

}  // namespace
}  // namespace zorvane
