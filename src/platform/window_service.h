// WindowService: what the desktop tells about its windows — the list front to back and
// the application that owns each — and the few things asked of a window: activate it,
// take it out of full screen, move and size it. Implemented for X11 in x11/, in memory
// in fake/, and by HeadlessWindowService where no desktop can be reached.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace zorvane {

struct WindowInfo {
  uint32_t windowID = 0;
  int32_t ownerPID = 0;  // 0 when the owner isn't known
  double x = 0, y = 0, width = 0, height = 0;  // screen points, origin top left
  int layer = 0;  // 0 for normal application windows, desktopLayer for the desktop's own
  static constexpr int desktopLayer = -1000;
  std::string title;
  bool onScreen = true;  // mapped, not minimised, and on the current desktop
};

struct ApplicationInfo {
  std::string bundleID;  // the application's identifier ("" when unknown)
  std::string name;      // what the user calls it ("" when unknown)
};

class WindowService {
 public:
  virtual ~WindowService() = default;
  // The windows on screen, front to back.
  virtual std::vector<WindowInfo> windows() = 0;
  // The application that runs as this process, if it is one the desktop knows.
  virtual std::optional<ApplicationInfo> application(int32_t pid) = 0;
  // One window as it is now, on screen or not; nothing when it is gone. Asks for this
  // window only, never for the list.
  virtual std::optional<WindowInfo> window(uint32_t windowID) = 0;
  // Makes the window the active one and raises it; false when the desktop refused.
  virtual bool activate(uint32_t windowID) = 0;
  // The window that has the keyboard now, as the window manager says; nothing when it
  // can't tell (no window manager, or none that says).
  virtual std::optional<uint32_t> activeWindow() { return std::nullopt; }

  // Whether the window is in the desktop's full-screen state; nothing when it is gone or
  // the desktop can't tell.
  virtual std::optional<bool> isFullScreen(uint32_t /*windowID*/) { return std::nullopt; }
  // Asks for the window to leave full screen; false when it is gone or nobody could be
  // asked. The window manager acts on it shortly after, and puts the window back where
  // it stood before.
  virtual bool leaveFullScreen(uint32_t /*windowID*/) { return false; }
  // Asks for the window's frame (as window(id) reports it: the client area, screen
  // points) to become this one; false when it is gone or nobody could be asked. The
  // window manager acts shortly after and may bend the request (size limits, work area).
  virtual bool moveResize(uint32_t /*windowID*/, double /*x*/, double /*y*/, double /*width*/,
                          double /*height*/) {
    return false;
  }
};

// A desktop with no windows: the tool server's view when no display can be reached.
class HeadlessWindowService final : public WindowService {
 public:
  std::vector<WindowInfo> windows() override { return {}; }
  std::optional<ApplicationInfo> application(int32_t) override { return std::nullopt; }
  std::optional<WindowInfo> window(uint32_t) override { return std::nullopt; }
  bool activate(uint32_t) override { return false; }
};

}  // namespace zorvane
