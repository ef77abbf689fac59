// ISO 8601 dates in UTC with whole seconds ("2026-11-22T20:38:52Z"), the one date
// form of the stores, the log and the wire.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace zorvane {

using SystemTime = std::chrono::system_clock::time_point;

// Formats in UTC, dropping fractions of a second.
[[nodiscard]] std::string formatISO8601(SystemTime time);

// Parses "YYYY-MM-DDTHH:MM:SSZ"; also accepts fractional seconds and a "+HH:MM" or
// "-HH:MM" offset, converting to UTC. Absent for anything else or an impossible date.
[[nodiscard]] std::optional<SystemTime> parseISO8601(std::string_view text);

}  // namespace zorvane
