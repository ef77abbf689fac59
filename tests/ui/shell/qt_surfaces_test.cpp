// QtSurfaces on the headless desktop (a window manager running): panels stand where they
// are placed in X11 pixels; a higher level stays in front; a panel catches the pointer,
// or lets it through to the window below. The ratio-2 run repeats this with Qt's
// coordinates no longer equal to X11 pixels.
#include "ui/shell/qt_surfaces.h"

#include <gtest/gtest.h>

#include <QAccessible>
#include <QGuiApplication>
#include <QQuickWindow>
#include <QRasterWindow>

#include <algorithm>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "ui/ink_test_scenes.h"
#include "ui/shell/qt_test_support.h"
#include "ui/shell/space.h"

// Last: its macros would clash with the headers above.
#include <X11/Xlib.h>

namespace zorvane {

namespace {

// An ordinary, managed window that counts the presses it gets.
class ClickTarget final : public QRasterWindow {
 public:
  int presses = 0;

 protected:
  void mousePressEvent(QMouseEvent*) override { presses++; }
};

// Runs a command once our requests reached the X server: its output, or nothing if it failed.
std::optional<std::string> run(const std::string& command) {
  QGuiApplication::sync();
  FILE* pipe = popen((command + " 2>/dev/null").c_str(), "r");
  std::string output;
  char buffer[512];
  while (size_t n = fread(buffer, 1, sizeof buffer, pipe)) output.append(buffer, n);
  if (pclose(pipe) != 0) return std::nullopt;
  return output;
}

// Where the X server has the panel's window.
Rect placement(const GooPanel& panel) {
  auto id = std::to_string(static_cast<const QtPanel&>(panel).window()->winId());
  Rect r{-1, -1, -1, -1};
  sscanf(run("xdotool getwindowgeometry --shell " + id).value_or("").c_str(),
         "WINDOW=%*d X=%lf Y=%lf WIDTH=%lf HEIGHT=%lf", &r.x, &r.y, &r.width, &r.height);
  return r;
}

// A panel's gestures, as text: "down 200,200", "drag 230,210", "up 230,210 moved".
PointerHandlers recordInto(std::vector<std::string>& events) {
  auto at = [](Point p) { return std::to_string(int(p.x)) + "," + std::to_string(int(p.y)); };
  return {[&events, at](Point p) { events.push_back("down " + at(p)); },
          [&events, at](Point p) { events.push_back("drag " + at(p)); },
          [&events, at](Point p, bool moved) { events.push_back("up " + at(p) + (moved ? " moved" : "")); }};
}

}  // namespace

TEST(QtSurfaces, PanelsStandWherePlacedStackByLevelAndCatchOrPassThePointer) {
  std::string why;
  if (!testing::ensureGuiApplication(why)) GTEST_SKIP() << why;
  if (!run("xdotool version")) GTEST_SKIP() << "xdotool is not installed";
  QtSurfaces surfaces;
  Rect root;
  sscanf(run("xdotool getdisplaygeometry").value_or("").c_str(), "%lf %lf", &root.width, &root.height);
  ASSERT_EQ(surfaces.screens().size(), 1u);
  EXPECT_EQ(surfaces.screens()[0].frame, root);

  ClickTarget target;
  Rect below = Space::current().toLogical(Rect{100, 100, 400, 300});
  target.setGeometry(QRect(int(below.x), int(below.y), int(below.width), int(below.height)));
  target.show();
  ASSERT_TRUE(testing::waitFor([&] { return target.isExposed(); }));

  auto overlay = surfaces.makePanel({.name = "test overlay", .level = PanelLevel::overlay});
  auto bubble = surfaces.makePanel({.name = "test bubble", .level = PanelLevel::bubble, .acceptsKey = true});
  QQuickWindow* bubbleWindow = static_cast<QtPanel&>(*bubble).window();
  std::vector<std::string> overlayEvents, bubbleEvents;
  overlay->setPointerHandlers(recordInto(overlayEvents));
  bubble->setPointerHandlers(recordInto(bubbleEvents));
  Size inkSize;
  overlay->setInk(30, [&](double, Size size) {
    inkSize = size;
    return GooScene{};
  });
  overlay->setFrame({150, 150, 300, 200});
  bubble->setFrame({350, 150, 200, 100});
  bubble->orderFront();
  overlay->orderFront();  // in front last, yet below the higher level
  ASSERT_TRUE(testing::waitFor([&] { return inkSize.width > 0 && bubbleWindow->isExposed(); }));
  EXPECT_EQ(placement(*overlay), (Rect{150, 150, 300, 200}));
  EXPECT_EQ(placement(*bubble), (Rect{350, 150, 200, 100}));
  double ratio = bubbleWindow->devicePixelRatio();
  EXPECT_EQ(inkSize, (Size{300 / ratio, 200 / ratio})) << "the goo fills the panel, in points";
  EXPECT_EQ(QAccessible::queryAccessibleInterface(bubbleWindow)->text(QAccessible::Name), "test bubble");
  bubble->makeKey();
  EXPECT_TRUE(testing::waitFor([&] { return bubbleWindow->isActive(); }));

  // Where they overlap, the bubble takes the click.
  ASSERT_TRUE(run("xdotool mousemove 400 200 click 1"));
  ASSERT_TRUE(testing::waitFor([&] { return bubbleEvents.size() == 2; }));
  EXPECT_EQ(bubbleEvents, (std::vector<std::string>{"down 400,200", "up 400,200"}));

  // A drag on the overlay; then a press that wobbles by 3 pixels, which is no move.
  auto gesture = [&](const std::string& moves) {
    overlayEvents.clear();
    EXPECT_TRUE(run("xdotool mousemove 200 200 mousedown 1 " + moves + " mouseup 1"));
    EXPECT_TRUE(testing::waitFor([&] { return !overlayEvents.empty() && overlayEvents.back().starts_with("up"); }));
  };
  gesture("mousemove 215 205 mousemove 230 210");
  ASSERT_GE(overlayEvents.size(), 3u);
  EXPECT_EQ(overlayEvents.front(), "down 200,200");
  EXPECT_EQ(overlayEvents[overlayEvents.size() - 2], "drag 230,210");
  EXPECT_EQ(overlayEvents.back(), "up 230,210 moved");
  gesture("mousemove 203 200");
  EXPECT_EQ(overlayEvents.back(), "up 203,200");
  EXPECT_EQ(target.presses, 0);

  // Another window takes the focus mid-drag: the gesture goes on to the real release.
  overlayEvents.clear();
  ASSERT_TRUE(run("xdotool mousemove 200 200 mousedown 1 mousemove 215 205"));
  ASSERT_TRUE(testing::waitFor([&] { return overlayEvents.size() >= 2; }));
  {
    // Another program's window: the application stops being the active one.
    Display* other = XOpenDisplay(nullptr);
    ASSERT_NE(other, nullptr);
    Window window = XCreateSimpleWindow(other, DefaultRootWindow(other), 600, 400, 80, 60, 0, 0, 0);
    XMapRaised(other, window);
    XSync(other, False);
    ASSERT_TRUE(testing::waitFor([&] {
      XSetInputFocus(other, window, RevertToParent, CurrentTime);
      XSync(other, False);
      return QGuiApplication::applicationState() == Qt::ApplicationInactive;
    }));
    XDestroyWindow(other, window);
    XCloseDisplay(other);
  }
  ASSERT_TRUE(run("xdotool mousemove 240 220 mouseup 1"));
  EXPECT_TRUE(testing::waitFor([&] { return !overlayEvents.empty() && overlayEvents.back().starts_with("up"); }));
  EXPECT_EQ(overlayEvents.back(), "up 240,220 moved");
  EXPECT_EQ(std::count_if(overlayEvents.begin(), overlayEvents.end(), [](auto& e) { return e.starts_with("up"); }), 1);
  EXPECT_EQ(target.presses, 0);

  // Click-through: the window below gets the click.
  overlayEvents.clear();
  overlay->setClickThrough(true);
  ASSERT_TRUE(run("xdotool mousemove 200 200 click 1"));
  ASSERT_TRUE(testing::waitFor([&] { return target.presses == 1; }));
  EXPECT_TRUE(overlayEvents.empty());
  EXPECT_EQ(surfaces.pointer(), (Point{200, 200}));

  overlay->orderOut();
  EXPECT_FALSE(overlay->isVisible());
  EXPECT_FALSE(run("xdotool search --onlyvisible --name '^test overlay$'"));
  EXPECT_TRUE(run("xdotool search --onlyvisible --name '^test bubble$'"));
}

}  // namespace zorvane
