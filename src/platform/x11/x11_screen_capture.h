// X11ScreenCapture: one window's pixels, as RGB, from the X server.
//
// The image is the window's client area (the rectangle X11WindowService reports as its
// frame), at one pixel per point. With the Composite extension, the window's top-level
// (its frame) is redirected to an off-screen pixmap the first time it is captured and
// stays so while this object lives: the pixmap holds what the application drew, parts
// under other windows and beyond the screen's edge included. Right after the first
// redirection the application repaints what was hidden, so that capture waits
// `Options::firstCaptureSettle` once. Without Composite it reads the screen: the parts
// beyond the screen come back black, and covered parts show what covers them.
//
// Failures are text ("capture: window 0x... is gone", "... is not mapped"); an X error
// never ends the process. Shares the display's thread (see X11Display).
#pragma once

#include <chrono>
#include <memory>

#include "platform/screen_capture.h"

namespace zorvane {

class X11Display;

class X11ScreenCapture final : public ScreenCapture {
 public:
  struct Options {
    bool useComposite = true;
    std::chrono::milliseconds firstCaptureSettle{150};
  };
  explicit X11ScreenCapture(std::shared_ptr<X11Display> display);
  X11ScreenCapture(std::shared_ptr<X11Display> display, Options options);
  // Ends the redirections this object made.
  ~X11ScreenCapture() override;

  Expected<RGBImage> capture(uint32_t windowID) override;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace zorvane
