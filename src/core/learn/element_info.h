// ElementInfo: what was under a click while the user demonstrated a task: the
// accessibility role and visible label of the element, its value, and the labels of the
// elements around it, nearest first. It is how a recorded step can say "Click “Send”
// button in “Chat”" instead of giving only a point.
//
// Roles come in the accessibility vocabulary the platform layer reports ("AXButton",
// "AXTextField"). The JSON form is {"role", "label", "value"?, "context": [...]}.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/base/expected.h"
#include "core/base/json_value.h"

namespace zorvane {

struct ElementInfo {
  std::string role;                  // e.g. "AXButton"
  std::string label;                 // visible label, may be empty
  std::optional<std::string> value;  // its value, where it has one
  std::vector<std::string> context;  // labels of enclosing elements, nearest first; may be empty

  // How a step names the element: “Send” button, or "the button" without a label,
  // followed by ` in “Chat”` with the first non-empty context label. The role word is
  // the role without "AX", lower-cased ("AXPopUpButton" is "popupbutton").
  [[nodiscard]] std::string phrase() const;

  // `value` is left out when absent.
  [[nodiscard]] JSONValue encode() const;
  // Fails on a missing key or a wrong type, naming the key ("role: missing").
  [[nodiscard]] static Expected<ElementInfo> decode(const JSONValue& value);

  friend bool operator==(const ElementInfo&, const ElementInfo&) = default;
};

}  // namespace zorvane
