#include "core/hub/schedule_grammar.h"

namespace zorvane::ScheduleGrammar {

std::string lowercased(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return lower;
}

std::vector<std::string_view> split(std::string_view text, std::string_view separator) {
  std::vector<std::string_view> pieces;
  if (separator.empty()) {
    if (!text.empty()) pieces.push_back(text);
    return pieces;
  }
  size_t start = 0;
  while (start <= text.size()) {
    size_t end = text.find(separator, start);
    if (end == std::string_view::npos) end = text.size();
    if (end > start) pieces.push_back(text.substr(start, end - start));
    start = end + separator.size();
  }
  return pieces;
}

std::string_view trimBlanks(std::string_view text) {
  size_t first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  size_t last = text.find_last_not_of(" \t");
  return text.substr(first, last - first + 1);
}

IntegerReading readInteger(std::string_view text) {
  bool negative = false;
  if (!text.empty() && (text.front() == '+' || text.front() == '-')) {
    negative = text.front() == '-';
    text.remove_prefix(1);
  }
  if (text.empty()) return {};
  // Accumulated as a negative number, whose range is one larger, so that the most
  // negative value reads too.
  int64_t value = 0;
  bool overflow = false;
  for (char c : text) {
    if (c < '0' || c > '9') return {};
    if (overflow) continue;  // keep checking that the rest are digits
    if (__builtin_mul_overflow(value, 10, &value) ||
        __builtin_sub_overflow(value, c - '0', &value)) {
      overflow = true;
    }
  }
  if (overflow) return {IntegerReading::Status::overflow, 0};
  if (negative) return {IntegerReading::Status::number, value};
  if (value == INT64_MIN) return {IntegerReading::Status::overflow, 0};
  return {IntegerReading::Status::number, -value};
}

LastCharacterSplit splitLastCharacter(std::string_view text) {
  if (text.empty()) return {};
  // Step back over continuation bytes (10xxxxxx) to a lead byte whose length covers
  // exactly them; anything else is invalid UTF-8, and its last byte counts alone.
  size_t last = text.size() - 1;
  size_t start = last;
  while (start > 0 && last - start < 3 &&
         (static_cast<unsigned char>(text[start]) & 0xC0) == 0x80) {
    --start;
  }
  auto lead = static_cast<unsigned char>(text[start]);
  size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC0 ? 2 : 1;
  if (start == last || length != last - start + 1) start = last;
  return {text.substr(0, start), text.substr(start)};
}

std::string intervalText(int64_t minutes) {
  if (minutes % 60 == 0) return std::to_string(minutes / 60) + "h";
  return std::to_string(minutes) + "m";
}

}  // namespace zorvane::ScheduleGrammar
