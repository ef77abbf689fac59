// Word-level helpers shared by the two schedule parsers (schedule.cpp and
// schedule_trigger.cpp). Private to src/core/hub.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace zorvane::ScheduleGrammar {

// ASCII letters lowered, every other byte kept, so offsets in the result match the input.
[[nodiscard]] std::string lowercased(std::string_view text);

// The pieces between occurrences of `separator`, empty pieces dropped.
[[nodiscard]] std::vector<std::string_view> split(std::string_view text,
                                                  std::string_view separator);

// Blanks and tabs removed from both ends; line ends stay.
[[nodiscard]] std::string_view trimBlanks(std::string_view text);

// A decimal integer written as an optional "+" or "-" and one or more digits, nothing
// else. `overflow` is a well-formed number that a signed 64-bit integer can't hold.
struct IntegerReading {
  enum class Status { number, overflow, invalid };
  Status status = Status::invalid;
  int64_t value = 0;
};
[[nodiscard]] IntegerReading readInteger(std::string_view text);

// The text without its last character (one whole UTF-8 sequence), and that character.
struct LastCharacterSplit {
  std::string_view head;
  std::string_view last;
};
[[nodiscard]] LastCharacterSplit splitLastCharacter(std::string_view text);

// An interval in the grammar's form: "2h" for a multiple of 60 minutes, else "90m".
[[nodiscard]] std::string intervalText(int64_t minutes);

}  // namespace zorvane::ScheduleGrammar
