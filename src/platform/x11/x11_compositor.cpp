// On X11 a composition manager announces itself by owning the selection
// _NET_WM_CM_S<screen> (EWMH, "Compositing Managers").
#include "platform/compositor.h"

#include <X11/Xlib.h>

#include <string>

namespace zorvane {

bool compositorRunning() {
  Display* display = XOpenDisplay(nullptr);
  if (!display) return false;
  std::string name = "_NET_WM_CM_S" + std::to_string(DefaultScreen(display));
  // An atom nobody has interned yet names a selection nobody owns.
  Atom selection = XInternAtom(display, name.c_str(), True);
  bool owned = selection != None && XGetSelectionOwner(display, selection) != None;
  XCloseDisplay(display);
  return owned;
}

}  // namespace zorvane
