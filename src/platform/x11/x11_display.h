// X11Display: the one Xlib connection the X11 desktop services share, the atoms they
// ask for, and a record of the X errors raised on it.
//
// Xlib's default error handler ends the process, and a window may close between any two
// requests; so the first X11Display opened installs a handler (once per process) that
// records errors on our connections instead, and hands errors of other connections to
// the handler that was there before. A caller that sends a request which may fail
// takes `errorMark()` first and asks `errorSince(mark)` afterwards; that call syncs, so
// every error of the requests sent in between has arrived.
//
// Not thread-safe, on purpose: an X11Display and everything using it live on one thread
// (the main queue's). Xlib is not initialised for threads, and nothing here locks.
//
// A lost connection to the server (the server ended) is not recoverable in Xlib: its
// I/O error handler ends the process. That is Xlib's rule, not ours.
#pragma once

#include <X11/Xlib.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zorvane {

// Atoms interned once, in one round trip, when the display is opened.
struct X11Atoms {
  Atom utf8String;
  Atom wmState, wmName, wmClass;
  Atom netSupportingWMCheck, netClientList, netClientListStacking, netActiveWindow;
  Atom netCurrentDesktop, netWMDesktop, netWMPID, netWMName, netFrameExtents;
  Atom netWMState, netWMStateHidden, netWMStateAbove, netWMStateBelow, netWMStateSticky;
  Atom netWMWindowType, netWMWindowTypeDesktop, netWMWindowTypeDock, netWMWindowTypeToolbar,
      netWMWindowTypeMenu, netWMWindowTypeUtility, netWMWindowTypeSplash, netWMWindowTypeDialog,
      netWMWindowTypeDropdownMenu, netWMWindowTypePopupMenu, netWMWindowTypeTooltip,
      netWMWindowTypeNotification, netWMWindowTypeCombo, netWMWindowTypeDnd, netWMWindowTypeNormal;
  Atom gtkApplicationID;
};

// One recorded X protocol error.
struct X11Error {
  int code = 0;               // BadWindow, BadMatch, ...
  int requestCode = 0;        // the major opcode of the failed request
  unsigned long resource = 0; // the XID the request named
  std::string text;           // XGetErrorText of the code
};

class X11Display {
 public:
  // Opens `name`, or $DISPLAY when empty; nothing when no display can be reached.
  static std::shared_ptr<X11Display> open(const std::string& name = "");
  ~X11Display();
  X11Display(const X11Display&) = delete;
  X11Display& operator=(const X11Display&) = delete;

  Display* display() const { return display_; }
  Window root() const { return root_; }
  int screen() const { return screen_; }
  // The size of the default screen in pixels (one pixel is one point here).
  int screenWidth() const;
  int screenHeight() const;
  const X11Atoms& atoms() const { return atoms_; }

  // The serial of the next request; errors of requests from here on are "since" it.
  unsigned long errorMark() const;
  // Syncs with the server, then returns the first error raised by a request sent since
  // `mark`, if any. Errors of earlier requests are forgotten.
  std::optional<X11Error> errorSince(unsigned long mark);
  // Forgets the recorded errors without a sync: for callers whose requests all waited
  // for their replies, so every error they could raise has arrived already.
  void forgetErrors();

  // A window property of the given type and format, as 8-, 16- or 32-bit items (Xlib
  // hands 32-bit items as longs). Nothing when the window has no such property, has it
  // with another type, or is gone.
  std::optional<std::vector<unsigned long>> cardinals(Window window, Atom property, Atom type);
  std::optional<std::string> bytes(Window window, Atom property, Atom type);

  // The ancestor of `window` that is a child of the root (the window manager's frame),
  // or the window itself when it is one; 0 when it is gone.
  Window topLevelOf(Window window);

 private:
  X11Display(Display* display);
  friend int handleXError(Display*, XErrorEvent*);

  Display* display_ = nullptr;
  Window root_ = 0;
  int screen_ = 0;
  X11Atoms atoms_{};
  std::vector<X11Error> errors_;          // errors since the last errorSince()
  std::vector<unsigned long> errorSerials_;
};

}  // namespace zorvane
