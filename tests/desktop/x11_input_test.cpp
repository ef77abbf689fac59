#include "platform/x11/x11_input.h"

#include <gtest/gtest.h>

#include <climits>
#include <sstream>

#include "desktop/desktop_apps.h"
#include "platform/x11/x11_display.h"
#include "platform/x11/x11_window_service.h"

namespace zorvane {
namespace {

using namespace std::chrono_literals;
using testing::DesktopApp;

struct Box {
  double x = 0, y = 0, width = 0, height = 0;
  Point centreIn(const WindowInfo& window) const { return {window.x + x + width / 2, window.y + y + height / 2}; }
};

// "layout <name> x y w h" from the Qt test app.
Box layoutOf(DesktopApp& app, const std::string& name) {
  auto line = app.waitForLine("layout " + name + " ", 10s);
  if (!line) return {};
  std::istringstream words(line->substr(8 + name.size()));
  Box box;
  words >> box.x >> box.y >> box.width >> box.height;
  return box;
}

// Text as a caller hands it over: chunks of at most 16 UTF-16 units, never splitting
// a character.
std::vector<std::string> chunksOf(const std::string& text) {
  std::vector<std::string> chunks(1);
  int units = 0;
  for (size_t i = 0; i < text.size();) {
    unsigned char lead = static_cast<unsigned char>(text[i]);
    size_t length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    int width = length == 4 ? 2 : 1;
    if (units + width > 16) {
      chunks.emplace_back();
      units = 0;
    }
    chunks.back() += text.substr(i, length);
    units += width;
    i += length;
  }
  return chunks;
}

void click(InputService& input, Point at, MouseButton button = MouseButton::left) {
  input.mouseMoved(at);
  input.mouseButton(at, button, true, 1);
  input.mouseButton(at, button, false, 1);
}

void press(InputService& input, uint16_t key, uint64_t flags = 0) {
  input.key(key, flags, true);
  input.key(key, flags, false);
}

// Clicks, typed text (accents, a symbol, Greek), a key combination and the scroll wheel
// reach a real Qt window as the user would have made them.
TEST(X11Input, DrivesAQtWindow) {
  auto display = X11Display::open();
  if (!display) GTEST_SKIP() << "no X display; run under scripts/headless-desktop.sh";
  if (testing::qtWidgetAppPath().empty()) GTEST_SKIP() << "the Qt test app was not built (no Qt Widgets)";
  X11WindowService windows(display);
  X11Input input(display);

  auto app = DesktopApp::start({testing::qtWidgetAppPath()});
  ASSERT_TRUE(app);
  ASSERT_TRUE(app->waitForLine("window ", 20s));
  auto window = testing::waitForWindow(windows, app->pid(), 10s);
  ASSERT_TRUE(window);
  ASSERT_TRUE(windows.activate(window->windowID));
  ASSERT_TRUE(testing::waitUntil([&] { return windows.windows().at(0).windowID == window->windowID; }, 10s));
  window = windows.window(window->windowID);
  ASSERT_TRUE(window);

  size_t mark = app->lineCount();
  click(input, layoutOf(*app, "send").centreIn(*window));
  EXPECT_TRUE(app->waitForLine("clicked Send", 10s, mark)) << "the click on Send never arrived";
  Box check = layoutOf(*app, "check");  // the box itself is at the left end of the row
  click(input, {window->x + check.x + 8, window->y + check.y + check.height / 2});
  EXPECT_TRUE(app->waitForLine("checked 1", 10s, mark)) << "the click on the check box never arrived";

  const std::string text = "héllo wörld ✓ Ωμέγα";
  click(input, layoutOf(*app, "edit").centreIn(*window));
  mark = app->lineCount();
  for (const std::string& chunk : chunksOf(text)) input.text(chunk);
  auto typed = app->waitForLine("text " + text, 20s, mark);
  EXPECT_TRUE(typed) << "typed text arrived as: " << app->lines().back();

  mark = app->lineCount();
  press(input, 0 /* a */, KeyFlags::control);
  EXPECT_TRUE(app->waitForLine("selection " + text, 10s, mark)) << "ctrl+a selected nothing";
  mark = app->lineCount();
  press(input, 51 /* backspace */);
  EXPECT_EQ(app->waitForLine("text ", 10s, mark).value_or("(nothing)"), "text ")
      << "backspace did not delete the selection";
  // Characters typed before on borrowed keys come out right again, next to a shifted key.
  mark = app->lineCount();
  input.text("Ωé");
  press(input, 24 /* = */, KeyFlags::shift);  // "+" on a US keyboard
  EXPECT_TRUE(app->waitForLine("text Ωé+", 10s, mark)) << "typed text arrived as: " << app->lines().back();

  // Positive vertical scrolls up (the wheel turns away), positive horizontal left; any
  // amount, however large or negative, is a bounded number of wheel clicks.
  input.mouseMoved(layoutOf(*app, "send").centreIn(*window));
  mark = app->lineCount();
  input.scroll(-120, 0);
  EXPECT_TRUE(app->waitForLine("wheel -120 0", 10s, mark)) << "scrolling down was not a downward wheel turn";
  mark = app->lineCount();
  input.scroll(0, 40);
  EXPECT_TRUE(app->waitForLine("wheel 0 120", 10s, mark)) << "scrolling left was not a leftward wheel turn";
  mark = app->lineCount();
  input.scroll(INT32_MIN, INT32_MAX);
  input.scroll(1, 0);
  EXPECT_TRUE(app->waitForLine("wheel 120 0", 20s, mark)) << "the wheel stopped working after a huge scroll";
  EXPECT_TRUE(app->running());
  EXPECT_LE(app->lineCount() - mark, 202u) << "a huge scroll was not clamped";
}

}  // namespace
}  // namespace zorvane
