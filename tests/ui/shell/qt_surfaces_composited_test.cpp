// QtSurfaces::isComposited follows the X server's compositing-manager selection, and the
// panels are painted on an opaque backdrop while nobody composites; a test window stands
// in for a composition manager by owning the selection. X11's headers come last:
// their macros clash with Qt's and GoogleTest's names.
#include "ui/shell/qt_surfaces.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include <QQuickWindow>

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
  auto panel = surfaces.makePanel({"goo", PanelLevel::overlay, true, false});
  QQuickWindow* window = static_cast<QtPanel&>(*panel).window();
  EXPECT_EQ(window->color().alpha(), 255) << "never black where the goo is transparent";

  Window standIn = XCreateSimpleWindow(display, DefaultRootWindow(display), 0, 0, 1, 1, 0, 0, 0);
  XSetSelectionOwner(display, selection, standIn, CurrentTime);
  XSync(display, False);
  surfaces.checkCompositor();
  EXPECT_TRUE(surfaces.isComposited());
  EXPECT_EQ(window->color().alpha(), 0);

  XDestroyWindow(display, standIn);  // the selection loses its owner with it
  XSync(display, False);
  surfaces.checkCompositor();
  EXPECT_FALSE(surfaces.isComposited());
  EXPECT_EQ(window->color().alpha(), 255);
  XCloseDisplay(display);
}

}  // namespace zorvane
