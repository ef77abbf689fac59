#include "desktop/file_manager_desktop_window.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <unistd.h>

namespace zorvane::testing {

std::unique_ptr<ClassedWindow> ClassedWindow::show(const std::string& resName, const std::string& resClass,
                                                   const std::string& title, int x, int y, int width, int height) {
  Display* display = XOpenDisplay(nullptr);
  if (!display) return nullptr;
  std::unique_ptr<ClassedWindow> shown(new ClassedWindow());
  shown->display_ = display;
  Window window = XCreateSimpleWindow(display, DefaultRootWindow(display), x, y, unsigned(width), unsigned(height), 0, 0,
                                      0xffffff);
  shown->window_ = uint32_t(window);
  std::string name = resName, klass = resClass;
  XClassHint hint{name.data(), klass.data()};
  XSetClassHint(display, window, &hint);
  XStoreName(display, window, title.c_str());
  unsigned long pid = static_cast<unsigned long>(getpid());
  XChangeProperty(display, window, XInternAtom(display, "_NET_WM_PID", False), XA_CARDINAL, 32, PropModeReplace,
                  reinterpret_cast<unsigned char*>(&pid), 1);
  XMapRaised(display, window);
  XFlush(display);
  return shown;
}

void ClassedWindow::destroy() {
  if (!display_) return;
  auto* display = static_cast<Display*>(display_);
  XDestroyWindow(display, Window(window_));
  XCloseDisplay(display);
  display_ = nullptr;
}

ClassedWindow::~ClassedWindow() { destroy(); }

bool closeWindow(uint32_t windowID) {
  Display* display = XOpenDisplay(nullptr);
  if (!display) return false;
  XEvent event{};
  event.xclient.type = ClientMessage;
  event.xclient.window = Window(windowID);
  event.xclient.message_type = XInternAtom(display, "WM_PROTOCOLS", False);
  event.xclient.format = 32;
  event.xclient.data.l[0] = long(XInternAtom(display, "WM_DELETE_WINDOW", False));
  event.xclient.data.l[1] = CurrentTime;
  XSendEvent(display, Window(windowID), False, NoEventMask, &event);
  XSync(display, False);
  XCloseDisplay(display);
  return true;
}

}  // namespace zorvane::testing
