// X11Input: synthetic mouse and keyboard events through the XTEST extension. They enter
// the server as if from the real devices, so they reach whichever window is under the
// pointer or has the focus, as the window manager decides.
//
// Keys: `key()` takes a code of the US virtual-key table callers use on every platform
// (36 return, 0 "a", 123 left, ...) and turns it into the X keysym of the same key;
// the flags press Super, Shift, Alt and Control (in that order) before the key goes
// down, and release them, in reverse, after it comes up.
//
// Text: each character is typed on a key that produces it, with Shift where the keyboard
// map has it on the shifted level. Characters the map doesn't have at all (accents,
// Greek, symbols) are put for the moment on spare keycodes (ones the map leaves empty),
// all of a chunk's at once; the server then tells every client of the new map, and the
// clients need a moment to reload it before the keys come, and again before the map is
// restored behind them. That pause (`Options::remapSettle`) is the only wait here;
// text that the keyboard map already has is typed without one.
//
// A double click is two clicks in quick succession: X has no click count of its own, the
// toolkits count by time and place, so `clickState` needs no event field here.
//
// Shares the display's thread (see X11Display).
#pragma once

#include <chrono>
#include <memory>

#include "platform/input_service.h"

namespace zorvane {

class X11Display;

class X11Input final : public InputService {
 public:
  struct Options {
    // Measured on Xvfb: see the .cpp.
    std::chrono::milliseconds remapSettle{20};
  };
  explicit X11Input(std::shared_ptr<X11Display> display);
  X11Input(std::shared_ptr<X11Display> display, Options options);
  ~X11Input() override;

  void mouseMoved(Point at) override;
  void mouseButton(Point at, MouseButton button, bool down, int clickState) override;
  // Codes outside the table send nothing.
  void key(uint16_t virtualKey, uint64_t flags, bool down) override;
  // Invalid UTF-8 is typed as U+FFFD; control characters other than newline and tab are
  // skipped.
  void text(const std::string& chunk) override;
  // One wheel click per 40 pixels (at least one for any non-zero amount, at most 100).
  void scroll(int32_t vertical, int32_t horizontal) override;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace zorvane
