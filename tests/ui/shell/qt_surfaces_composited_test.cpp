// QtSurfaces::isComposited follows the X server's compositing-manager selection; a test
// window stands in for a composition manager by owning it. X11's headers come last:
// their macros clash with Qt's and GoogleTest's names.
#include "ui/shell/qt_surfaces.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "ui/ink_test_scenes.h"

#include <X11/Xlib.h>

namespace zorvane {

TEST(QtSurfaces, IsCompositedWhileTheCompositorSelectionHasAnOwner) {
  std::string why;
  if (!testing::ensureGuiApplication(why)) GTEST_SKIP() << why;
  Display* display = XOpenDisplay(nullptr);
  ASSERT_NE(display, nullptr);
  QtSurfaces surfaces;
  Atom selection = XInternAtom(display, ("_NET_WM_CM_S" + std::to_string(DefaultScreen(display))).c_str(), False);
  if (XGetSelectionOwner(display, selection) != 0) GTEST_SKIP() << "a composition manager runs on this display";
  EXPECT_FALSE(surfaces.isComposited());

  Window standIn = XCreateSimpleWindow(display, DefaultRootWindow(display), 0, 0, 1, 1, 0, 0, 0);
  XSetSelectionOwner(display, selection, standIn, CurrentTime);
  XSync(display, False);
  EXPECT_TRUE(surfaces.isComposited());

  XDestroyWindow(display, standIn);  // the selection loses its owner with it
  XSync(display, False);
  EXPECT_FALSE(surfaces.isComposited());
  XCloseDisplay(display);
}

}  // namespace zorvane
