// Synthetic input that reaches the frontmost application: the low-level events. The
// sequences and pacing of a click, a key or typed text are the caller's. XTest in x11/,
// a recorder in fake/.
#pragma once

#include <cstdint>
#include <string>

#include "core/geometry/geometry.h"

namespace zorvane {

enum class MouseButton { left, right };

// Modifier flags of a key event, as the US key table (Input.keys) counts them.
namespace KeyFlags {
inline constexpr uint64_t command = 0x100000;  // Super on Linux
inline constexpr uint64_t shift = 0x20000;
inline constexpr uint64_t option = 0x80000;  // Alt
inline constexpr uint64_t control = 0x40000;
}  // namespace KeyFlags

class InputService {
 public:
  virtual ~InputService() = default;
  // Global screen points, top-left origin.
  virtual void mouseMoved(Point at) = 0;
  // `clickState` counts the clicks of a multi-click: 2 on the second press of a double click.
  virtual void mouseButton(Point at, MouseButton button, bool down, int clickState) = 0;
  // `virtualKey` is a code of the US key table (Input.keys); `flags` KeyFlags.
  virtual void key(uint16_t virtualKey, uint64_t flags, bool down) = 0;
  // Types this text (UTF-8) whatever the keyboard layout; one chunk of up to 16 UTF-16 units.
  virtual void text(const std::string& chunk) = 0;
  // One scroll in pixel units: `vertical` positive scrolls up, `horizontal` positive left.
  virtual void scroll(int32_t vertical, int32_t horizontal) = 0;
};

}  // namespace zorvane
