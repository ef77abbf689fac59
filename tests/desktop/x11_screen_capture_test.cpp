#include "platform/x11/x11_screen_capture.h"

#include <gtest/gtest.h>

#include <sstream>

#include "desktop/desktop_apps.h"
#include "platform/x11/x11_display.h"
#include "platform/x11/x11_window_service.h"

namespace zorvane {
namespace {

using namespace std::chrono_literals;
using testing::DesktopApp;
using testing::waitUntil;

uint32_t reportedWindowID(const std::string& line) {
  return static_cast<uint32_t>(std::stoul(line.substr(line.find(' ') + 1)));
}

// How many pixels of the rectangle are pure enough red.
int redPixels(const RGBImage& image, int left, int top, int width, int height) {
  int count = 0;
  for (int y = top; y < top + height && y < image.height; ++y)
    for (int x = left; x < left + width && x < image.width; ++x) {
      const uint8_t* p = image.pixels.data() + (static_cast<size_t>(y) * image.width + x) * 3;
      if (p[0] > 240 && p[1] < 16 && p[2] < 16) ++count;
    }
  return count;
}

// The capture is the window's own client area, at its size, with what the application
// drew, also where another window covers it or the screen ends; a window that can't be
// captured gives a failure that says why.
TEST(X11ScreenCapture, CapturesTheWindowsOwnPixels) {
  auto display = X11Display::open();
  if (!display) GTEST_SKIP() << "no X display; run under scripts/headless-desktop.sh";
  if (testing::qtWidgetAppPath().empty()) GTEST_SKIP() << "the Qt test app was not built (no Qt Widgets)";
  X11WindowService windows(display);
  X11ScreenCapture capture(display);

  auto app = DesktopApp::start({testing::qtWidgetAppPath(), "--at", "100,100"});
  ASSERT_TRUE(app);
  auto shown = app->waitForLine("window ", 20s);
  ASSERT_TRUE(shown);
  uint32_t id = reportedWindowID(*shown);
  auto swatchLine = app->waitForLine("layout swatch ", 5s);
  ASSERT_TRUE(swatchLine);
  int sx = 0, sy = 0, sw = 0, sh = 0;
  std::istringstream(swatchLine->substr(14)) >> sx >> sy >> sw >> sh;
  ASSERT_TRUE(testing::waitForWindow(windows, app->pid(), 10s));

  auto image = capture.capture(id);
  ASSERT_TRUE(image) << image.error();
  EXPECT_EQ(image->width, 480);
  EXPECT_EQ(image->height, 240);
  EXPECT_EQ(image->pixels.size(), 480u * 240 * 3);
  EXPECT_EQ(redPixels(*image, sx, sy, sw, sh), sw * sh) << "the red swatch is not where the app drew it";
  EXPECT_EQ(redPixels(*image, 0, 0, sx, sy), 0) << "red outside the swatch";

  // Covered by another window: still the app's own pixels.
  auto cover = DesktopApp::start({testing::qtWidgetAppPath(), "--at", "100,100"});
  ASSERT_TRUE(cover);
  auto coverShown = cover->waitForLine("window ", 20s);
  ASSERT_TRUE(coverShown);
  uint32_t coverID = reportedWindowID(*coverShown);
  ASSERT_TRUE(windows.activate(coverID));
  ASSERT_TRUE(waitUntil([&] { return windows.windows().at(0).windowID == coverID; }, 10s));
  auto first = windows.window(id), second = windows.window(coverID);
  ASSERT_TRUE(first && second);
  ASSERT_LE(second->x, first->x + sx);
  ASSERT_LE(second->y, first->y + sy);
  ASSERT_GE(second->x + second->width, first->x + sx + sw) << "the second window doesn't cover the swatch";
  ASSERT_GE(second->y + second->height, first->y + sy + sh) << "the second window doesn't cover the swatch";
  auto covered = capture.capture(id);
  ASSERT_TRUE(covered) << covered.error();
  EXPECT_EQ(redPixels(*covered, sx, sy, sw, sh), sw * sh) << "the covering window shows in the capture";

  // Partly beyond the right edge of the screen: the hidden part is captured too.
  ASSERT_TRUE(app->send("move " + std::to_string(display->screenWidth() - 440) + " 300"));
  ASSERT_TRUE(waitUntil([&] { auto w = windows.window(id); return w && w->x + w->width > display->screenWidth(); }, 10s))
      << "the window manager kept the window on the screen";
  auto beyond = capture.capture(id);
  ASSERT_TRUE(beyond) << beyond.error();
  EXPECT_EQ(beyond->width, 480);
  EXPECT_EQ(redPixels(*beyond, sx, sy, sw, sh), sw * sh) << "the part beyond the screen's edge is missing";

  // The fallback reads the screen: the same size, black where the screen ends.
  X11ScreenCapture screenOnly(display, {.useComposite = false});
  ASSERT_TRUE(windows.activate(id));
  ASSERT_TRUE(waitUntil([&] { return windows.windows().at(0).windowID == id; }, 10s));
  auto fromScreen = screenOnly.capture(id);
  ASSERT_TRUE(fromScreen) << fromScreen.error();
  EXPECT_EQ(fromScreen->width, 480);
  EXPECT_EQ(fromScreen->height, 240);
  auto w = windows.window(id);
  ASSERT_TRUE(w);
  int visible = display->screenWidth() - static_cast<int>(w->x);
  EXPECT_GT(redPixels(*fromScreen, sx, sy, visible - sx, sh), 0) << "the on-screen part of the swatch is missing";
  EXPECT_EQ(redPixels(*fromScreen, visible, sy, 480 - visible, sh), 0) << "pixels beyond the screen";

  ASSERT_TRUE(app->send("minimize"));
  ASSERT_TRUE(waitUntil([&] { auto m = windows.window(id); return m && !m->onScreen; }, 10s));
  EXPECT_EQ(capture.capture(id).error(), "capture: window " + [&] {
    std::ostringstream hex;
    hex << "0x" << std::hex << id;
    return hex.str();
  }() + " is not mapped (minimised or hidden)");
  app->stop();
  ASSERT_TRUE(waitUntil([&] { return !windows.window(id); }, 10s));
  EXPECT_TRUE(capture.capture(id).error().ends_with(" is gone"));
  EXPECT_EQ(capture.capture(0).error(), "capture: window 0x0 is gone");
}

}  // namespace
}  // namespace zorvane
