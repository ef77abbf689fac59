// Base64 (RFC 4648, with padding): how images travel inside JSON.
#pragma once

#include <string>
#include <string_view>

namespace zorvane {

std::string base64Encode(std::string_view bytes);

}  // namespace zorvane
