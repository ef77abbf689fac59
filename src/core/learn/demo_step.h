// DemoStep: one human-sized step of a demonstration (a click, a double or right click,
// a run of typing, a key combination, a scroll), as Demonstration::compile folds raw
// events into them, and as "recording.json" in a skill folder keeps them.
//
// The JSON form is {"kind", "x"?, "y"?, "text"?, "element"?, "frame"?}; absent fields
// are left out. Coordinates, element and frame belong to the click kinds only.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "core/base/expected.h"
#include "core/base/json_value.h"
#include "core/learn/element_info.h"
#include "core/targets/browser_app.h"  // allCases / fromRawValue

namespace zorvane {

struct DemoStep {
  // Raw values, in this order: "click", "doubleClick", "rightClick", "type", "key",
  // "scroll".
  enum class Kind { click, doubleClick, rightClick, type, key, scroll };

  Kind kind = Kind::click;
  std::optional<double> x;
  std::optional<double> y;
  std::optional<std::string> text;  // typed text, key combination ("⌘+s") or "up"/"down"
  std::optional<ElementInfo> element;
  std::optional<std::string> frame;  // file name of the frame saved before a click

  [[nodiscard]] bool isClick() const {
    return kind == Kind::click || kind == Kind::doubleClick || kind == Kind::rightClick;
  }

  // The step as one line for people and agents:
  //   Click “Send” button in “Chat” (at 600,700)    Double-click here
  //   Type “Reached”    Press ⌘+s    Scroll down
  // Coordinates are cut to whole numbers.
  [[nodiscard]] std::string line() const;

  [[nodiscard]] JSONValue encode() const;
  // Fails on a missing kind, an unknown kind or a wrong type, naming the key.
  [[nodiscard]] static Expected<DemoStep> decode(const JSONValue& value);

  friend bool operator==(const DemoStep&, const DemoStep&) = default;
};

template <>
std::span<const DemoStep::Kind> allCases<DemoStep::Kind>();
template <>
std::optional<DemoStep::Kind> fromRawValue<DemoStep::Kind>(std::string_view rawValue);
[[nodiscard]] std::string_view rawValue(DemoStep::Kind kind);

}  // namespace zorvane
