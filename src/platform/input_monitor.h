// InputMonitor: sees the user's keys and pointer wherever they go, in every application,
// without taking them away from it (a global monitor, not a grab). X11InputMonitor in
// x11/ (XInput 2 raw events), FakeInputMonitor in fake/.
//
//   monitor->onEvent = [this](const InputEvent& event) {
//     if (event.kind == InputEvent::Kind::keyDown && event.characters == ".") ...
//   };
//   if (auto started = monitor->start({.keys = true}); !started) Log::info(started.error());
//
// `onEvent` runs on the main queue, in the order the events happened. Motion comes at
// most once for each batch of motion the desktop delivers, with the latest position.
// Nothing is delivered after `stop()` or the object's destruction.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "core/base/expected.h"
#include "core/geometry/geometry.h"
#include "platform/input_service.h"

namespace zorvane {

struct InputEvent {
  enum class Kind { keyDown, keyUp, buttonDown, buttonUp, pointerMoved };
  Kind kind = Kind::pointerMoved;
  Point location;          // the pointer, global screen points, top-left origin
  uint64_t modifiers = 0;  // KeyFlags held when the event was read
  // Keys.
  std::optional<uint16_t> virtualKey;  // the US key table code, when the key is in it
  std::string characters;  // what the key types without modifiers ("." for the period key);
                           // "" for keys that type nothing visible
  uint32_t keyCode = 0;    // the desktop's own code of the physical key
  // Buttons: 0 left, 1 right, 2 middle, 3 and up the others. Scroll wheels are not
  // buttons here and are not reported.
  int button = 0;
};

// What a monitor listens to; motion is off unless asked for, as it is by far the most.
struct InputInterest {
  bool keys = false;
  bool buttons = false;
  bool motion = false;
};

class InputMonitor {
 public:
  virtual ~InputMonitor() = default;

  std::function<void(const InputEvent&)> onEvent;

  // Starts (or changes) what is monitored. Fails when the desktop can't report global
  // input; nothing is then delivered.
  [[nodiscard]] virtual Expected<void> start(InputInterest interest) = 0;
  virtual void stop() = 0;
};

}  // namespace zorvane
