// UTF-8 text helpers. Text is UTF-8 std::string throughout; where a length is counted
// in characters it counts Unicode scalar values, and no cut ever splits a sequence.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace zorvane {

// Replaces every invalid or truncated byte sequence (including overlongs, surrogates
// and values above U+10FFFF) with U+FFFD. Valid text comes back unchanged.
[[nodiscard]] std::string repairUTF8(std::string_view bytes);

// Whether `bytes` is entirely valid UTF-8.
[[nodiscard]] bool isValidUTF8(std::string_view bytes);

// Counting and cutting are meant for valid text. Given invalid bytes they count and
// cut by the units repairUTF8 would replace, one U+FFFD each, and never read outside
// the text.

// The number of Unicode scalar values in valid UTF-8 text.
[[nodiscard]] size_t utf8Length(std::string_view text);

// The first `count` scalar values of valid UTF-8 text (all of it if shorter).
[[nodiscard]] std::string utf8Prefix(std::string_view text, size_t count);

// The last `count` scalar values of valid UTF-8 text (all of it if shorter).
[[nodiscard]] std::string utf8Suffix(std::string_view text, size_t count);

// Removes white space and line ends (ASCII) from both ends.
[[nodiscard]] std::string trimmed(std::string_view text);

// The Unicode scalar values of the text; an invalid sequence counts as U+FFFD.
[[nodiscard]] std::vector<char32_t> codePoints(std::string_view text);

// One scalar value as UTF-8; a surrogate or a value past U+10FFFF gives U+FFFD.
[[nodiscard]] std::string encodeUTF8(char32_t point);

}  // namespace zorvane
