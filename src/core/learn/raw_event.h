// RawEvent: one low-level event of a recorded demonstration, as the recorder captures
// it: a click (with what was under it and the frame saved just before), a key, or a
// scroll. Times are seconds from the start of the recording; coordinates are points
// relative to the recorded window.
//
// The JSON form is an object with one key, the case's name, holding the payload;
// optional fields are left out when absent:
//
//   {"click": {"x": 160, "y": 90, "right": false, "element": {...}, "at": 0}}
//   {"key": {"text": "M", "modifiers": ["shift"], "secure": false, "at": 0.5}}
//   {"scroll": {"dx": 0, "dy": 3, "at": 7.25}}
#pragma once

#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "core/base/expected.h"
#include "core/base/json_value.h"
#include "core/learn/element_info.h"

namespace zorvane {

struct RawEvent {
  struct Click {
    double x = 0;
    double y = 0;
    bool right = false;
    std::optional<ElementInfo> element;
    std::optional<std::string> frame;  // file name of the frame saved before the click
    double at = 0;
    friend bool operator==(const Click&, const Click&) = default;
  };
  struct Key {
    std::optional<std::string> text;     // what the key typed
    std::optional<std::string> key;      // its name, e.g. "return", "delete"
    std::vector<std::string> modifiers;  // among "cmd", "shift", "option", "control"
    bool secure = false;                 // typed into a password field
    double at = 0;
    friend bool operator==(const Key&, const Key&) = default;
  };
  struct Scroll {
    double dx = 0;
    double dy = 0;  // above 0 scrolls down
    double at = 0;
    friend bool operator==(const Scroll&, const Scroll&) = default;
  };
  using Value = std::variant<Click, Key, Scroll>;

  Value value;

  // Seconds from the start of the recording.
  [[nodiscard]] double at() const;

  template <typename T>
  [[nodiscard]] const T* as() const {
    return std::get_if<T>(&value);
  }

  [[nodiscard]] JSONValue encode() const;
  // Fails on anything but an object with exactly one known case, naming the key at
  // fault ("click.x: missing", "unknown event \"drag\"").
  [[nodiscard]] static Expected<RawEvent> decode(const JSONValue& value);

  friend bool operator==(const RawEvent&, const RawEvent&) = default;
};

}  // namespace zorvane
