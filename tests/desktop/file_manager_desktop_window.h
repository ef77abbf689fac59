// A plain X window for the desktop tests, with a WM_CLASS and title of the test's
// choosing and this process as its owner (_NET_WM_PID): stands in for an application
// that would be hard to install, such as a password manager. Destroyed with the object.
// And the close request a window manager sends to any client's window.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace zorvane::testing {

class ClassedWindow {
 public:
  // Nothing when the display can't be opened.
  static std::unique_ptr<ClassedWindow> show(const std::string& resName, const std::string& resClass,
                                             const std::string& title, int x, int y, int width, int height);
  ~ClassedWindow();
  uint32_t id() const { return window_; }
  // Destroys the window now (idempotent).
  void destroy();

 private:
  ClassedWindow() = default;
  void* display_ = nullptr;
  uint32_t window_ = 0;
};

// Asks the client that owns the window to close it (WM_DELETE_WINDOW), as a window
// manager's close button does; false when the display can't be opened.
bool closeWindow(uint32_t windowID);

}  // namespace zorvane::testing
