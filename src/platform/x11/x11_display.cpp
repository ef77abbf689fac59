#include "platform/x11/x11_display.h"

#include <X11/Xatom.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <mutex>

namespace zorvane {

namespace {

// The open displays, so the process-wide handler knows which errors are ours. Touched
// only on the display thread (see the header); the handler runs inside Xlib calls made
// on that thread. Never destroyed: a display held by a static object may close after
// every other static is gone.
std::vector<X11Display*>& openDisplays() {
  static auto* displays = new std::vector<X11Display*>();
  return *displays;
}

XErrorHandler previousHandler = nullptr;

constexpr size_t kMaxRecordedErrors = 64;

}  // namespace

int handleXError(Display* display, XErrorEvent* event) {
  for (X11Display* owner : openDisplays()) {
    if (owner->display_ != display) continue;
    // Bounded, keeping the newest: errors of requests nobody checked make room for the
    // ones a caller is about to ask for.
    if (owner->errors_.size() >= kMaxRecordedErrors) {
      owner->errors_.erase(owner->errors_.begin());
      owner->errorSerials_.erase(owner->errorSerials_.begin());
    }
    char text[256] = {};
    XGetErrorText(display, event->error_code, text, sizeof text);
    owner->errors_.push_back({event->error_code, event->request_code, event->resourceid, text});
    owner->errorSerials_.push_back(event->serial);
    return 0;
  }
  // Not one of ours (another library's connection): its errors are its own business.
  if (previousHandler) return previousHandler(display, event);
  return 0;
}

std::shared_ptr<X11Display> X11Display::open(const std::string& name) {
  const char* chosen = name.empty() ? std::getenv("DISPLAY") : name.c_str();
  if (!chosen || !*chosen) return nullptr;
  Display* display = XOpenDisplay(chosen);
  if (!display) return nullptr;
  static std::once_flag installed;
  std::call_once(installed, [] { previousHandler = XSetErrorHandler(handleXError); });
  return std::shared_ptr<X11Display>(new X11Display(display));
}

X11Display::X11Display(Display* display) : display_(display) {
  screen_ = DefaultScreen(display_);
  root_ = RootWindow(display_, screen_);
  openDisplays().push_back(this);

  const char* names[] = {
      "UTF8_STRING", "WM_STATE", "WM_NAME", "WM_CLASS",
      "_NET_SUPPORTING_WM_CHECK", "_NET_CLIENT_LIST", "_NET_CLIENT_LIST_STACKING", "_NET_ACTIVE_WINDOW",
      "_NET_CURRENT_DESKTOP", "_NET_WM_DESKTOP", "_NET_WM_PID", "_NET_WM_NAME", "_NET_FRAME_EXTENTS",
      "_NET_WM_STATE", "_NET_WM_STATE_HIDDEN", "_NET_WM_STATE_ABOVE", "_NET_WM_STATE_BELOW",
      "_NET_WM_STATE_STICKY",
      "_NET_WM_WINDOW_TYPE", "_NET_WM_WINDOW_TYPE_DESKTOP", "_NET_WM_WINDOW_TYPE_DOCK",
      "_NET_WM_WINDOW_TYPE_TOOLBAR", "_NET_WM_WINDOW_TYPE_MENU", "_NET_WM_WINDOW_TYPE_UTILITY",
      "_NET_WM_WINDOW_TYPE_SPLASH", "_NET_WM_WINDOW_TYPE_DIALOG", "_NET_WM_WINDOW_TYPE_DROPDOWN_MENU",
      "_NET_WM_WINDOW_TYPE_POPUP_MENU", "_NET_WM_WINDOW_TYPE_TOOLTIP", "_NET_WM_WINDOW_TYPE_NOTIFICATION",
      "_NET_WM_WINDOW_TYPE_COMBO", "_NET_WM_WINDOW_TYPE_DND", "_NET_WM_WINDOW_TYPE_NORMAL",
      "_GTK_APPLICATION_ID",
  };
  Atom* targets[] = {
      &atoms_.utf8String, &atoms_.wmState, &atoms_.wmName, &atoms_.wmClass,
      &atoms_.netSupportingWMCheck, &atoms_.netClientList, &atoms_.netClientListStacking, &atoms_.netActiveWindow,
      &atoms_.netCurrentDesktop, &atoms_.netWMDesktop, &atoms_.netWMPID, &atoms_.netWMName, &atoms_.netFrameExtents,
      &atoms_.netWMState, &atoms_.netWMStateHidden, &atoms_.netWMStateAbove, &atoms_.netWMStateBelow,
      &atoms_.netWMStateSticky,
      &atoms_.netWMWindowType, &atoms_.netWMWindowTypeDesktop, &atoms_.netWMWindowTypeDock,
      &atoms_.netWMWindowTypeToolbar, &atoms_.netWMWindowTypeMenu, &atoms_.netWMWindowTypeUtility,
      &atoms_.netWMWindowTypeSplash, &atoms_.netWMWindowTypeDialog, &atoms_.netWMWindowTypeDropdownMenu,
      &atoms_.netWMWindowTypePopupMenu, &atoms_.netWMWindowTypeTooltip, &atoms_.netWMWindowTypeNotification,
      &atoms_.netWMWindowTypeCombo, &atoms_.netWMWindowTypeDnd, &atoms_.netWMWindowTypeNormal,
      &atoms_.gtkApplicationID,
  };
  static_assert(std::size(names) == std::size(targets));
  Atom interned[std::size(names)] = {};
  XInternAtoms(display_, const_cast<char**>(names), static_cast<int>(std::size(names)), False, interned);
  for (size_t i = 0; i < std::size(names); ++i) *targets[i] = interned[i];
}

X11Display::~X11Display() {
  auto& displays = openDisplays();
  displays.erase(std::remove(displays.begin(), displays.end(), this), displays.end());
  XCloseDisplay(display_);
}

int X11Display::screenWidth() const { return DisplayWidth(display_, screen_); }
int X11Display::screenHeight() const { return DisplayHeight(display_, screen_); }

unsigned long X11Display::errorMark() const { return NextRequest(display_); }

std::optional<X11Error> X11Display::errorSince(unsigned long mark) {
  XSync(display_, False);
  std::optional<X11Error> first;
  for (size_t i = 0; i < errors_.size(); ++i) {
    if (errorSerials_[i] < mark) continue;
    first = errors_[i];
    break;
  }
  errors_.clear();
  errorSerials_.clear();
  return first;
}

void X11Display::forgetErrors() {
  errors_.clear();
  errorSerials_.clear();
}

std::optional<std::vector<unsigned long>> X11Display::cardinals(Window window, Atom property, Atom type) {
  Atom actualType = 0;
  int format = 0;
  unsigned long count = 0, after = 0;
  unsigned char* data = nullptr;
  // 4096 longs: far more than any list of clients or states a desktop holds.
  int status = XGetWindowProperty(display_, window, property, 0, 4096, False, type, &actualType, &format,
                                  &count, &after, &data);
  if (status != Success || actualType != type || !data) {
    if (data) XFree(data);
    return std::nullopt;
  }
  std::vector<unsigned long> items;
  items.reserve(count);
  for (unsigned long i = 0; i < count; ++i) {
    if (format == 32)
      items.push_back(reinterpret_cast<unsigned long*>(data)[i]);
    else if (format == 16)
      items.push_back(reinterpret_cast<unsigned short*>(data)[i]);
    else
      items.push_back(data[i]);
  }
  XFree(data);
  return items;
}

std::optional<std::string> X11Display::bytes(Window window, Atom property, Atom type) {
  Atom actualType = 0;
  int format = 0;
  unsigned long count = 0, after = 0;
  unsigned char* data = nullptr;
  // Up to 64 KiB of text: a title longer than that is cut.
  int status = XGetWindowProperty(display_, window, property, 0, 16384, False, type, &actualType, &format,
                                  &count, &after, &data);
  if (status != Success || actualType != type || format != 8 || !data) {
    if (data) XFree(data);
    return std::nullopt;
  }
  std::string text(reinterpret_cast<char*>(data), count);
  XFree(data);
  return text;
}

Window X11Display::topLevelOf(Window window) {
  for (int depth = 0; depth < 32; ++depth) {
    Window root = 0, parent = 0, *children = nullptr;
    unsigned int count = 0;
    if (!XQueryTree(display_, window, &root, &parent, &children, &count)) return 0;
    if (children) XFree(children);
    if (parent == root || parent == 0) return window;
    window = parent;
  }
  return 0;
}

}  // namespace zorvane
