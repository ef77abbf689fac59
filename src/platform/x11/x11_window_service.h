// X11WindowService: the desktop's windows as the window manager publishes them (EWMH):
// the managed client windows, front to back, each with its process, title, frame and
// whether it is on screen.
//
// A window's frame is its client area in root coordinates: the pixels the application
// draws, without the window manager's decorations. That is the rectangle
// X11ScreenCapture captures, so a point in a screenshot plus the frame's origin is the
// screen point to click. (Windows that draw their own title bar, as GTK and Chromium
// do, have it inside this rectangle.)
//
// windows() lists every managed client, minimised ones and those on other desktops
// too, with onScreen false. window(id) reads that one window only, in a handful of
// round trips, and can be called every frame. A window that closes during a call is
// simply gone: nothing or false, never a crash (X11Display records the error).
//
// Shares the display's thread (see X11Display).
#pragma once

#include <memory>

#include "platform/linux/application_identity.h"
#include "platform/window_service.h"

namespace zorvane {

class X11Display;

class X11WindowService final : public WindowService {
 public:
  explicit X11WindowService(std::shared_ptr<X11Display> display,
                            ApplicationIdentity identity = ApplicationIdentity::fromEnvironment());
  ~X11WindowService() override;

  std::vector<WindowInfo> windows() override;
  std::optional<ApplicationInfo> application(int32_t pid) override;
  std::optional<WindowInfo> window(uint32_t windowID) override;
  // Sends _NET_ACTIVE_WINDOW (as a pager would, so the focus-stealing guard lets it
  // through) and raises the window; false when the window is gone. Without a window
  // manager it raises and focuses the window itself. Returns once the request is sent;
  // the window manager acts on it shortly after.
  bool activate(uint32_t windowID) override;
  std::optional<uint32_t> activeWindow() override;
  // _NET_WM_STATE_FULLSCREEN in the window's _NET_WM_STATE.
  std::optional<bool> isFullScreen(uint32_t windowID) override;
  // A _NET_WM_STATE request (remove full screen) from a pager; false without a window
  // manager, which is the only one that could act on it.
  bool leaveFullScreen(uint32_t windowID) override;
  // _NET_MOVERESIZE_WINDOW with static gravity, so the numbers are the client area's
  // and the window manager puts its decorations round it; a maximised window is
  // restored first, as window managers ignore geometry requests for those. Without a
  // window manager the window is configured directly. Numbers are rounded to pixels.
  bool moveResize(uint32_t windowID, double x, double y, double width, double height) override;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace zorvane
