// Space: converts between screen coordinates (X11 root-window pixels, top-left origin,
// what the window service and the accessibility tree report) and Qt's logical
// coordinates (what QWindow::geometry, QScreen::geometry and QCursor::pos use). It is
// the only place that does.
//
// Qt on X11 with a device pixel ratio keeps each screen's native top-left corner as its
// logical origin and divides distances from there by the screen's ratio:
//
//   logical = origin + (native - origin) / ratio
//
// so the conversion depends on the screen a point is on. A point is converted on the
// screen that holds it (native side for toLogical, logical side for toNative), else on
// the primary one; a rectangle on the screen that holds its centre, the way Qt picks a
// window's screen from the geometry it is given. Without screens nothing is scaled.
//
// A plain value: build it from a list of screens, or read the application's now with
// `current()` (GUI thread only). It does not follow later screen changes.
#pragma once

#include <vector>

#include "core/geometry/geometry.h"

class QScreen;

namespace zorvane {

class Space {
 public:
  struct Screen {
    Rect native;         // X11 pixels
    double ratio = 1;    // device pixels per logical point
    bool isPrimary = false;
  };

  Space() = default;
  explicit Space(std::vector<Screen> screens);

  // The screens of the running QGuiApplication, primary first.
  static Space current();
  // One screen of the running QGuiApplication.
  static Screen screenOf(const QScreen* screen);

  const std::vector<Screen>& screens() const { return screens_; }
  // The screen's geometry in logical coordinates.
  static Rect logicalFrame(const Screen& screen);

  Point toLogical(Point native) const;
  Rect toLogical(const Rect& native) const;
  Point toNative(Point logical) const;
  Rect toNative(const Rect& logical) const;

 private:
  // The screen whose frame (native or logical) holds `point`, else the primary one;
  // nothing without screens.
  const Screen* screenAt(Point point, bool native) const;

  std::vector<Screen> screens_;
};

}  // namespace zorvane
