// UUID: a random (version 4) universally unique identifier.
//
// Its canonical text is upper case ("E621E1F8-C36C-495A-93FC-0C247A3E6E5F"), as used in
// folder names and stores; `lowercased()` gives the form the agent tools want for
// their session ids.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zorvane {

class UUID {
 public:
  // A new random identifier.
  UUID();

  // Parses the 36-character hyphenated form in either case. Absent otherwise.
  static std::optional<UUID> parse(std::string_view text);

  std::string uuidString() const;  // upper case
  std::string lowercased() const;

  const std::array<uint8_t, 16>& bytes() const { return bytes_; }
  friend bool operator==(const UUID&, const UUID&) = default;
  friend auto operator<=>(const UUID&, const UUID&) = default;

 private:
  explicit UUID(const std::array<uint8_t, 16>& bytes) : bytes_(bytes) {}
  std::array<uint8_t, 16> bytes_{};
};

}  // namespace zorvane
