// relativeTime: how long ago a moment was, in words a person says: "just now",
// "5 minutes ago", "yesterday", "last week", "3 months ago". A moment in the future
// reads "just now" (clocks of two machines disagree by seconds).
#pragma once

#include <string>

#include "core/base/clock.h"

namespace zorvane {

[[nodiscard]] std::string relativeTime(SystemTime then, SystemTime now);

}  // namespace zorvane
