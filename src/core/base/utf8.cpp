#include "core/base/utf8.h"

namespace zorvane {

namespace {

// One step of decoding: how many bytes the unit at a position spans, and whether
// those bytes form a well-formed sequence. An ill-formed unit is a maximal subpart:
// the longest start of a well-formed sequence found there, or a single byte when even
// the first byte cannot begin one. Each such unit is replaced by one U+FFFD, the
// usual practice for converting bytes to text.
struct Unit {
  size_t length;
  bool valid;
};

struct LeadRule {
  unsigned char firstLead, lastLead;
  size_t continuations;
  unsigned char low, high;
};

}  // namespace

static constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

static bool inRange(unsigned char byte, unsigned char low, unsigned char high) {
  return byte >= low && byte <= high;
}

// The well-formed multi-byte sequences, by lead byte: how many continuation bytes
// follow, and the allowed range of the first one. The narrowed ranges are what exclude
// overlongs (E0, F0), surrogates (ED) and values past U+10FFFF (F4); later
// continuation bytes are always 80..BF. Lead bytes not listed (80..BF, C0, C1,
// F5..FF) never begin a sequence.
static constexpr LeadRule kLeadRules[] = {
    {0xC2, 0xDF, 1, 0x80, 0xBF}, {0xE0, 0xE0, 2, 0xA0, 0xBF}, {0xE1, 0xEC, 2, 0x80, 0xBF},
    {0xED, 0xED, 2, 0x80, 0x9F}, {0xEE, 0xEF, 2, 0x80, 0xBF}, {0xF0, 0xF0, 3, 0x90, 0xBF},
    {0xF1, 0xF3, 3, 0x80, 0xBF}, {0xF4, 0xF4, 3, 0x80, 0x8F},
};

static Unit decodeUnit(std::string_view bytes, size_t pos) {
  auto lead = static_cast<unsigned char>(bytes[pos]);
  if (lead < 0x80) return {1, true};

  const LeadRule* rule = nullptr;
  for (const LeadRule& candidate : kLeadRules) {
    if (inRange(lead, candidate.firstLead, candidate.lastLead)) rule = &candidate;
  }
  if (rule == nullptr) return {1, false};

  unsigned char low = rule->low, high = rule->high;
  size_t length = 1;
  for (size_t i = 0; i < rule->continuations; ++i) {
    if (pos + length >= bytes.size()) return {length, false};
    auto byte = static_cast<unsigned char>(bytes[pos + length]);
    if (!inRange(byte, low, high)) return {length, false};
    ++length;
    low = 0x80;
    high = 0xBF;
  }
  return {length, true};
}

std::string repairUTF8(std::string_view bytes) {
  std::string text;
  text.reserve(bytes.size());
  size_t pos = 0;
  while (pos < bytes.size()) {
    Unit unit = decodeUnit(bytes, pos);
    if (unit.valid) {
      text.append(bytes.substr(pos, unit.length));
    } else {
      text.append(kReplacement);
    }
    pos += unit.length;
  }
  return text;
}

bool isValidUTF8(std::string_view bytes) {
  size_t pos = 0;
  while (pos < bytes.size()) {
    Unit unit = decodeUnit(bytes, pos);
    if (!unit.valid) return false;
    pos += unit.length;
  }
  return true;
}

size_t utf8Length(std::string_view text) {
  size_t count = 0;
  for (size_t pos = 0; pos < text.size(); pos += decodeUnit(text, pos).length) ++count;
  return count;
}

std::string utf8Prefix(std::string_view text, size_t count) {
  size_t pos = 0;
  for (size_t taken = 0; taken < count && pos < text.size(); ++taken) {
    pos += decodeUnit(text, pos).length;
  }
  return std::string(text.substr(0, pos));
}

static bool isContinuation(unsigned char byte) {
  return (byte & 0xC0) == 0x80;
}

// The start of the unit that ends at `end`, found walking backwards. A byte that is not
// a continuation byte always starts a unit when scanning forwards, so the nearest one
// (at most four bytes back) starts the last unit if its unit ends exactly at `end`;
// otherwise the last byte is a stray continuation byte and a unit by itself. Cuts from
// the end therefore fall on the same boundaries as cuts from the start, even in
// invalid text.
static size_t unitStartBefore(std::string_view text, size_t end) {
  for (size_t back = 1; back <= 4 && back <= end; ++back) {
    size_t start = end - back;
    if (isContinuation(static_cast<unsigned char>(text[start]))) continue;
    return decodeUnit(text, start).length == back ? start : end - 1;
  }
  return end - 1;
}

std::string utf8Suffix(std::string_view text, size_t count) {
  size_t start = text.size();
  for (size_t taken = 0; taken < count && start > 0; ++taken) {
    start = unitStartBefore(text, start);
  }
  return std::string(text.substr(start));
}

std::string trimmed(std::string_view text) {
  constexpr std::string_view kSpace = " \t\n\r\f\v";
  size_t first = text.find_first_not_of(kSpace);
  if (first == std::string_view::npos) return {};
  size_t last = text.find_last_not_of(kSpace);
  return std::string(text.substr(first, last - first + 1));
}

}  // namespace zorvane

namespace zorvane {

std::vector<char32_t> codePoints(std::string_view text) {
  std::string valid = repairUTF8(text);
  std::vector<char32_t> points;
  points.reserve(valid.size());
  const auto* p = reinterpret_cast<const unsigned char*>(valid.data());
  const auto* end = p + valid.size();
  while (p < end) {
    unsigned char lead = *p;
    int length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    char32_t point = length == 1 ? lead : length == 2 ? lead & 0x1F : length == 3 ? lead & 0x0F : lead & 0x07;
    for (int i = 1; i < length; ++i) point = (point << 6) | (p[i] & 0x3F);
    points.push_back(point);
    p += length;
  }
  return points;
}

std::string encodeUTF8(char32_t point) {
  if ((point >= 0xD800 && point <= 0xDFFF) || point > 0x10FFFF) return std::string(kReplacement);
  std::string out;
  if (point < 0x80) {
    out += static_cast<char>(point);
  } else if (point < 0x800) {
    out += static_cast<char>(0xC0 | (point >> 6));
    out += static_cast<char>(0x80 | (point & 0x3F));
  } else if (point < 0x10000) {
    out += static_cast<char>(0xE0 | (point >> 12));
    out += static_cast<char>(0x80 | ((point >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (point & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (point >> 18));
    out += static_cast<char>(0x80 | ((point >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((point >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (point & 0x3F));
  }
  return out;
}

}  // namespace zorvane
