#include "platform/x11/x11_window_service.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>

#include "core/geometry/geometry.h"
#include "desktop/desktop_apps.h"
#include "desktop/file_manager_desktop_window.h"
#include "platform/x11/x11_display.h"
#include "support/test_support.h"

namespace zorvane {
namespace {

using namespace std::chrono_literals;
using testing::DesktopApp;
using testing::waitForWindow;
using testing::waitUntil;

// The X window id the Qt test app reports in its "window <id> <w>x<h>" line.
uint32_t reportedWindowID(const std::string& line) {
  return static_cast<uint32_t>(std::stoul(line.substr(line.find(' ') + 1)));
}

// The position of a window in the list, front (0) to back; -1 when it isn't listed.
int placeOf(WindowService& service, uint32_t windowID) {
  auto list = service.windows();
  for (size_t i = 0; i < list.size(); ++i)
    if (list[i].windowID == windowID) return static_cast<int>(i);
  return -1;
}

class X11WindowServiceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    display_ = X11Display::open();
    if (!display_) GTEST_SKIP() << "no X display; run under scripts/headless-desktop.sh";
    if (testing::qtWidgetAppPath().empty()) GTEST_SKIP() << "the Qt test app was not built (no Qt Widgets)";
  }
  std::shared_ptr<X11Display> display_;
};

// Two real applications are listed front to back with their process, title, frame and
// identity, and activating one brings it to the front.
TEST_F(X11WindowServiceTest, ListsApplicationsFrontToBackAndActivates) {
  if (testing::findProgram("gtk3-widget-factory").empty()) GTEST_SKIP() << "gtk3-widget-factory is not installed";
  X11WindowService service(display_);

  auto qt = DesktopApp::start({testing::qtWidgetAppPath(), "--at", "60,50"});
  ASSERT_TRUE(qt);
  auto shown = qt->waitForLine("window ", 20s);
  ASSERT_TRUE(shown) << "the Qt app never showed its window";
  uint32_t qtID = reportedWindowID(*shown);
  auto gtk = DesktopApp::start({"gtk3-widget-factory"});
  ASSERT_TRUE(gtk);
  auto gtkWindow = waitForWindow(service, gtk->pid(), 30s);
  ASSERT_TRUE(gtkWindow) << "gtk3-widget-factory's window never appeared";
  auto qtWindow = waitForWindow(service, qt->pid(), 10s);
  ASSERT_TRUE(qtWindow);

  EXPECT_EQ(qtWindow->windowID, qtID);
  EXPECT_EQ(qtWindow->title, "Zorvane Qt test");
  EXPECT_EQ(qtWindow->width, 480);
  EXPECT_EQ(qtWindow->height, 240);
  // The client area sits just inside the frame the window manager put at 60,50.
  EXPECT_GE(qtWindow->x, 60);
  EXPECT_LT(qtWindow->x, 60 + 40);
  EXPECT_GE(qtWindow->y, 50);
  EXPECT_LT(qtWindow->y, 50 + 80);
  EXPECT_EQ(qtWindow->layer, 0);
  EXPECT_EQ(gtkWindow->title, "gtk3-widget-factory");
  EXPECT_EQ(gtkWindow->layer, 0);

  // window(id) reads the same window on its own.
  auto single = service.window(qtID);
  ASSERT_TRUE(single);
  EXPECT_EQ(single->ownerPID, qt->pid());
  EXPECT_EQ(single->title, qtWindow->title);
  EXPECT_EQ(single->x, qtWindow->x);
  EXPECT_EQ(single->y, qtWindow->y);
  EXPECT_TRUE(single->onScreen);

  auto gtkApp = service.application(gtk->pid());
  ASSERT_TRUE(gtkApp);
  EXPECT_EQ(gtkApp->bundleID, "org.gtk.WidgetFactory");  // _GTK_APPLICATION_ID
  EXPECT_EQ(gtkApp->name, "Widget Factory");              // from gtk3-widget-factory.desktop
  auto qtApp = service.application(qt->pid());
  ASSERT_TRUE(qtApp);
  EXPECT_EQ(qtApp->bundleID, "zorvane-qt-test");  // WM_CLASS res_class: no desktop entry
  EXPECT_EQ(qtApp->name, "zorvane_qt_widget_app");

  // With a desktop entry that claims the window class, the entry names the app.
  testing::TempDir data;
  data.write("applications/org.zorvane.QtTest.desktop",
             "[Desktop Entry]\nType=Application\nName=Zorvane Test Window\nExec=zorvane_qt_widget_app\n"
             "StartupWMClass=zorvane-qt-test\n");
  X11WindowService withEntry(display_, ApplicationIdentity({data.path()}));
  ASSERT_TRUE(waitForWindow(withEntry, qt->pid(), 5s));
  auto named = withEntry.application(qt->pid());
  ASSERT_TRUE(named);
  EXPECT_EQ(named->bundleID, "org.zorvane.QtTest");
  EXPECT_EQ(named->name, "Zorvane Test Window");

  ASSERT_TRUE(service.activate(qtID));
  EXPECT_TRUE(waitUntil([&] { return placeOf(service, qtID) == 0; }, 10s)) << "the Qt window never came to the front";
  EXPECT_LT(placeOf(service, qtID), placeOf(service, gtkWindow->windowID));
  ASSERT_TRUE(service.activate(gtkWindow->windowID));
  EXPECT_TRUE(waitUntil([&] { return placeOf(service, gtkWindow->windowID) == 0; }, 10s))
      << "the GTK window never came to the front";
  EXPECT_GT(placeOf(service, qtID), placeOf(service, gtkWindow->windowID));
}

// A minimised window is listed but not on screen, activating brings it back, and a
// closed window is nothing, without harm to the caller.
TEST_F(X11WindowServiceTest, MinimisedAndClosedWindows) {
  X11WindowService service(display_);
  auto qt = DesktopApp::start({testing::qtWidgetAppPath()});
  ASSERT_TRUE(qt);
  auto shown = qt->waitForLine("window ", 20s);
  ASSERT_TRUE(shown);
  uint32_t id = reportedWindowID(*shown);
  ASSERT_TRUE(waitForWindow(service, qt->pid(), 10s));

  ASSERT_TRUE(qt->send("minimize"));
  EXPECT_TRUE(waitUntil([&] { auto w = service.window(id); return w && !w->onScreen; }, 10s))
      << "the minimised window still counts as on screen";
  bool listedOffScreen = false;
  for (const WindowInfo& w : service.windows())
    if (w.windowID == id) listedOffScreen = !w.onScreen;
  EXPECT_TRUE(listedOffScreen) << "a minimised window is still listed, as not on screen";

  ASSERT_TRUE(service.activate(id));
  EXPECT_TRUE(waitUntil([&] { auto w = service.window(id); return w && w->onScreen; }, 10s))
      << "activating did not bring the minimised window back";

  pid_t pid = qt->pid();
  qt->stop();
  EXPECT_TRUE(waitUntil([&] { return !service.window(id); }, 10s)) << "a closed window is still there";
  EXPECT_EQ(placeOf(service, id), -1);
  EXPECT_FALSE(service.activate(id));
  EXPECT_FALSE(service.application(pid));
  EXPECT_FALSE(service.window(0));
  EXPECT_FALSE(service.window(0x7ffffff0));  // never existed
  EXPECT_FALSE(service.application(-5));
}

// A window asked to move and resize lands with its client area where it was asked,
// also from maximised; full screen is seen, and leaving it brings the frame back.
TEST_F(X11WindowServiceTest, MovesResizesAndLeavesFullScreen) {
  X11WindowService service(display_);
  auto shown = testing::ClassedWindow::show("layout", "Layout", "Layout test", 40, 40, 300, 200);
  ASSERT_TRUE(shown);
  uint32_t id = shown->id();
  auto frameIs = [&](Rect want) {
    auto w = service.window(id);
    return w && std::abs(w->x - want.x) <= 2 && std::abs(w->y - want.y) <= 2 &&
           std::abs(w->width - want.width) <= 2 && std::abs(w->height - want.height) <= 2;
  };
  auto describe = [&] {
    auto w = service.window(id);
    return w ? std::to_string(w->x) + "," + std::to_string(w->y) + " " + std::to_string(w->width) + "x" +
                   std::to_string(w->height)
             : std::string("gone");
  };
  // Asks the window manager to add a state to the window, as its title bar's buttons do.
  auto addState = [&](const char* first, const char* second) {
    Display* dpy = display_->display();
    XEvent event{};
    event.xclient.type = ClientMessage;
    event.xclient.window = id;
    event.xclient.message_type = display_->atoms().netWMState;
    event.xclient.format = 32;
    event.xclient.data.l[0] = 1;
    event.xclient.data.l[1] = static_cast<long>(XInternAtom(dpy, first, False));
    event.xclient.data.l[2] = second ? static_cast<long>(XInternAtom(dpy, second, False)) : 0;
    event.xclient.data.l[3] = 2;
    XSendEvent(dpy, display_->root(), False, SubstructureRedirectMask | SubstructureNotifyMask, &event);
    XFlush(dpy);
  };
  ASSERT_TRUE(waitUntil([&] { return display_->topLevelOf(id) != id && service.window(id); }, 10s))
      << "the window manager never framed the window";

  ASSERT_TRUE(service.moveResize(id, 200, 150, 500, 320));
  EXPECT_TRUE(waitUntil([&] { return frameIs({200, 150, 500, 320}); }, 10s)) << describe();
  EXPECT_EQ(service.isFullScreen(id), false);

  addState("_NET_WM_STATE_MAXIMIZED_VERT", "_NET_WM_STATE_MAXIMIZED_HORZ");
  ASSERT_TRUE(waitUntil([&] { auto w = service.window(id); return w && w->width > 1000; }, 10s)) << describe();
  ASSERT_TRUE(service.moveResize(id, 60, 90, 420, 260));
  EXPECT_TRUE(waitUntil([&] { return frameIs({60, 90, 420, 260}); }, 10s)) << "from maximised: " << describe();

  addState("_NET_WM_STATE_FULLSCREEN", nullptr);
  EXPECT_TRUE(waitUntil([&] { return service.isFullScreen(id) == true; }, 10s));
  EXPECT_TRUE(waitUntil([&] { return frameIs({0, 0, 1.0 * display_->screenWidth(), 1.0 * display_->screenHeight()}); },
                        10s))
      << describe();
  ASSERT_TRUE(service.leaveFullScreen(id));
  EXPECT_TRUE(waitUntil([&] { return service.isFullScreen(id) == false && frameIs({60, 90, 420, 260}); }, 10s))
      << describe();

  shown->destroy();
  EXPECT_TRUE(waitUntil([&] { return !service.window(id); }, 10s));
  EXPECT_EQ(service.isFullScreen(id), std::nullopt);
  EXPECT_FALSE(service.leaveFullScreen(id));
  EXPECT_FALSE(service.moveResize(id, 0, 0, 100, 100));
}

}  // namespace
}  // namespace zorvane
