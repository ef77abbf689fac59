#include "core/base/base64.h"

#include <cstdint>

namespace zorvane {

std::string base64Encode(std::string_view bytes) {
  static constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  out.reserve((bytes.size() + 2) / 3 * 4);
  size_t i = 0;
  for (; i + 3 <= bytes.size(); i += 3) {
    uint32_t n = uint32_t(uint8_t(bytes[i])) << 16 | uint32_t(uint8_t(bytes[i + 1])) << 8 | uint8_t(bytes[i + 2]);
    out += alphabet[n >> 18];
    out += alphabet[(n >> 12) & 63];
    out += alphabet[(n >> 6) & 63];
    out += alphabet[n & 63];
  }
  if (size_t rest = bytes.size() - i; rest > 0) {
    uint32_t n = uint32_t(uint8_t(bytes[i])) << 16 | (rest == 2 ? uint32_t(uint8_t(bytes[i + 1])) << 8 : 0);
    out += alphabet[n >> 18];
    out += alphabet[(n >> 12) & 63];
    out += rest == 2 ? alphabet[(n >> 6) & 63] : '=';
    out += '=';
  }
  return out;
}

}  // namespace zorvane
