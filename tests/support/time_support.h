// Time helpers shared by the calendar and schedule tests.
#pragma once

#include <gtest/gtest.h>

#include <optional>

#include "core/base/calendar.h"
#include "core/base/iso8601.h"

namespace zorvane::testing {

// An instant written in ISO 8601 ("2026-03-29T01:30:00Z").
inline SystemTime at(const char* text) { return *parseISO8601(text); }

// A real zone from the installed tzdata; fails the test (and falls back to UTC) if missing.
inline Calendar zone(const char* name) {
  std::optional<Calendar> calendar = Calendar::named(name);
  EXPECT_TRUE(calendar.has_value()) << name << " is not in the installed tzdata";
  return calendar.value_or(Calendar::utc());
}

}  // namespace zorvane::testing
