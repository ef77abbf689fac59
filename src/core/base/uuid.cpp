#include "core/base/uuid.h"

#include <uuid/uuid.h>

namespace zorvane {

static constexpr size_t kTextLength = 36;

static bool isHyphenPosition(size_t index) {
  return index == 8 || index == 13 || index == 18 || index == 23;
}

static int hexDigitValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

UUID::UUID() {
  uuid_t raw;
  uuid_generate_random(raw);
  for (size_t i = 0; i < bytes_.size(); ++i) bytes_[i] = raw[i];
}

std::optional<UUID> UUID::parse(std::string_view text) {
  if (text.size() != kTextLength) return std::nullopt;
  std::array<uint8_t, 16> bytes{};
  size_t nibble = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    if (isHyphenPosition(i)) {
      if (text[i] != '-') return std::nullopt;
      continue;
    }
    int value = hexDigitValue(text[i]);
    if (value < 0) return std::nullopt;
    bytes[nibble / 2] |= static_cast<uint8_t>(nibble % 2 == 0 ? value << 4 : value);
    ++nibble;
  }
  return UUID(bytes);
}

static std::string formatUUID(const std::array<uint8_t, 16>& bytes, const char* digits) {
  std::string text;
  text.reserve(kTextLength);
  for (size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text.push_back('-');
    text.push_back(digits[bytes[i] >> 4]);
    text.push_back(digits[bytes[i] & 0x0F]);
  }
  return text;
}

std::string UUID::uuidString() const {
  return formatUUID(bytes_, "0123456789ABCDEF");
}

std::string UUID::lowercased() const {
  return formatUUID(bytes_, "0123456789abcdef");
}

}  // namespace zorvane
