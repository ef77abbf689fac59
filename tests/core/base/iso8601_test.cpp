#include "core/base/iso8601.h"

#include <gtest/gtest.h>
#include <time.h>

#include "support/test_support.h"

namespace zorvane {

static SystemTime at(int64_t unixSeconds, int64_t millis = 0) {
  return SystemTime{} + std::chrono::seconds{unixSeconds} + std::chrono::milliseconds{millis};
}

// Formatting is UTC whatever the local zone, and floors to whole seconds.
TEST(ISO8601, FormatsUTCWholeSeconds) {
  {
    testing::ScopedEnv zone("TZ", "XYZ-9");
    tzset();
    EXPECT_EQ(formatISO8601(at(1795379932, 999)), "2026-11-22T20:38:52Z");
    EXPECT_EQ(formatISO8601(at(0, -1)), "1969-12-31T23:59:59Z");
    EXPECT_EQ(formatISO8601(SystemTime::max()), "2262-04-11T23:47:16Z");
  }
  tzset();
}

// Z, fractions of a second and offsets are accepted; offsets are converted to UTC. Any
// other shape, an impossible date or time, or a time the clock cannot hold is absent.
TEST(ISO8601, ParsesUTCAndOffsetsAndRejectsEverythingElse) {
  EXPECT_EQ(parseISO8601("2026-11-22T20:38:52Z"), at(1795379932));
  EXPECT_EQ(parseISO8601("2026-11-22T22:38:52.5+02:00"), at(1795379932, 500));
  EXPECT_EQ(parseISO8601("2026-11-22T15:08:52-05:30"), at(1795379932));
  EXPECT_EQ(parseISO8601("2000-02-29T00:00:00Z"), at(951782400));
  for (const char* bad :
       {"", "2026-11-22", "2026-11-22T20:38:52", "2026-11-22 20:38:52Z", "2026-11-22t20:38:52z",
        "2026-11-22T20:38:52Z ", "2026-1-22T20:38:52Z", "2026-11-22T20:38:52.Z",
        "2026-11-22T20:38:52+0200", "2026-02-30T00:00:00Z", "2025-02-29T00:00:00Z",
        "1900-02-29T00:00:00Z", "2026-13-01T00:00:00Z", "2026-04-31T00:00:00Z",
        "2026-11-22T24:00:00Z", "2026-11-22T20:38:60Z", "2026-11-22T20:38:52+24:00",
        "9999-12-31T23:59:59Z"}) {
    SCOPED_TRACE(bad);
    EXPECT_FALSE(parseISO8601(bad).has_value());
  }
}

}  // namespace zorvane
