#include "core/base/relative_time.h"

namespace zorvane {

namespace {

std::string count(long long n, const char* unit) {
  return std::to_string(n) + " " + unit + (n == 1 ? "" : "s") + " ago";
}

}  // namespace

std::string relativeTime(SystemTime then, SystemTime now) {
  long long seconds = std::chrono::duration_cast<std::chrono::seconds>(now - then).count();
  if (seconds < 60) return "just now";
  long long minutes = seconds / 60, hours = minutes / 60, days = hours / 24;
  if (minutes < 60) return count(minutes, "minute");
  if (hours < 24) return count(hours, "hour");
  if (days == 1) return "yesterday";
  if (days < 7) return count(days, "day");
  if (days < 14) return "last week";
  if (days < 31) return count(days / 7, "week");
  if (days < 61) return "last month";
  if (days < 365) return count(days / 30, "month");
  if (days < 730) return "last year";
  return count(days / 365, "year");
}

}  // namespace zorvane
