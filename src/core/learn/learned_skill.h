// LearnedSkill: what the program keeps about a skill that was learned from a
// demonstration (or that has simply been used): who it is for, where it was learned, and
// how it has fared. One object of "skills.json":
//
//   {"app": "WhatsApp", "bundleID": "net.whatsapp.WhatsApp", "created": "2026-05-01T09:30:00Z",
//    "name": "Send WhatsApp message", "purpose": "", "runs": 3, "failures": 1,
//    "slug": "send-whatsapp-message"}
//
// The counters and `lastFixed` are left out while they are absent; an absent counter
// means 0. Dates are UTC with whole seconds.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "core/base/expected.h"
#include "core/base/iso8601.h"
#include "core/base/json_value.h"

namespace zorvane {

struct LearnedSkill {
  std::string name;      // the user's name for it
  std::string slug;      // its folder under the skills root; the identity
  std::string bundleID;  // the application it was learned in; empty for a stub
  std::string app;       // that application's name; empty for a stub
  std::string purpose;   // what the user said it is for; may be empty
  SystemTime created;
  std::optional<int64_t> runs;      // how often it was used
  std::optional<int64_t> failures;  // how many of those runs failed
  std::optional<int64_t> fixes;     // how many runs improved it
  std::optional<SystemTime> lastFixed;

  [[nodiscard]] JSONValue encode() const;
  // Fails on a missing required key or a wrong type, naming the key ("slug: missing").
  // Unknown keys are ignored; null counts as absent.
  [[nodiscard]] static Expected<LearnedSkill> decode(const JSONValue& value);

  friend bool operator==(const LearnedSkill&, const LearnedSkill&) = default;
};

}  // namespace zorvane
