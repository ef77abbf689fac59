// The window tools end to end: a real `zorvane --mcp` whose scope names a real window,
// driven the way an agent drives it, with the applications telling what reached them.
#include <gtest/gtest.h>

#include <X11/Xutil.h>

#include <regex>

#include "core/mcp/control_scope.h"
#include "desktop/browser_app_support.h"
#include "desktop/desktop_apps.h"
#include "platform/x11/x11_display.h"
#include "platform/x11/x11_window_service.h"
#include "support/test_support.h"
#include "support/tool_server_client.h"

namespace zorvane {
namespace {

using namespace std::chrono_literals;
using testing::DesktopApp;
using testing::ToolServerClient;

std::string base64Decode(const std::string& text) {
  static const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  uint32_t bits = 0;
  int count = 0;
  for (char c : text) {
    size_t at = alphabet.find(c);
    if (at == std::string::npos) continue;
    bits = bits << 6 | uint32_t(at);
    if ((count += 6) >= 8) out += char(bits >> (count -= 8));
  }
  return out;
}

// Width and height from a JPEG's start-of-frame header.
std::pair<int, int> jpegSize(const std::string& jpeg) {
  for (size_t i = 2; i + 8 < jpeg.size(); ++i)
    if (uint8_t(jpeg[i]) == 0xFF && (uint8_t(jpeg[i + 1]) == 0xC0 || uint8_t(jpeg[i + 1]) == 0xC2))
      return {uint8_t(jpeg[i + 7]) << 8 | uint8_t(jpeg[i + 8]), uint8_t(jpeg[i + 5]) << 8 | uint8_t(jpeg[i + 6])};
  return {0, 0};
}

// The ref of the first tree line with this role and label, "" when there is none.
std::string refOf(const std::string& tree, const std::string& role, const std::string& label = "") {
  std::regex line("\\[([0-9.]+)\\] " + role + (label.empty() ? "" : " \"" + label + "\""));
  std::smatch match;
  return std::regex_search(tree, match, line) ? match[1].str() : "";
}

class WindowToolsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    display = X11Display::open();
    if (!display) GTEST_SKIP() << "no X display; run under scripts/headless-desktop.sh";
  }
  // A scope whose only entry is this window.
  std::string scopeFor(const WindowInfo& window, const std::string& name, const std::string& bundleID) {
    ControlScope scope;
    scope.entries.push_back({name, "app window", window.windowID, bundleID, std::nullopt});
    std::string path = dir.file("scope.json");
    scope.save(path);
    return path;
  }

  std::shared_ptr<X11Display> display;
  testing::TempDir dir;
};

TEST_F(WindowToolsTest, DrivesAQtWindow) {
  if (testing::qtWidgetAppPath().empty()) GTEST_SKIP() << "the Qt test app was not built";
  X11WindowService windows(display);
  auto app = DesktopApp::start({testing::qtWidgetAppPath(), "--at", "80,60"});
  ASSERT_TRUE(app && app->waitForLine("window ", 20s));
  auto window = testing::waitForWindow(windows, app->pid(), 10s);
  ASSERT_TRUE(window);
  ToolServerClient tools(scopeFor(*window, "Qt test", "zorvane_qt_widget_app"));
  ASSERT_TRUE(tools.ready());

  auto info = tools.call("get_target_info", JSONValue::object());
  EXPECT_NE(info.text.find("pid: " + std::to_string(app->pid()) + "\nwindow: " + std::to_string(window->windowID) +
                           " \"Zorvane Qt test\""),
            std::string::npos)
      << info.text;

  auto shot = tools.call("screenshot", JSONValue::object());
  ASSERT_FALSE(shot.isError) << shot.text;
  EXPECT_EQ(shot.imageMime, "image/jpeg");
  EXPECT_EQ(jpegSize(base64Decode(shot.imageBase64)), std::make_pair(int(window->width), int(window->height)));

  auto tree = tools.call("read_ui_tree", JSONValue::object());
  ASSERT_FALSE(tree.isError) << tree.text;
  std::string check = refOf(tree.text, "AXCheckBox", "Remember me");
  std::string send = refOf(tree.text, "AXButton", "Send");
  std::string field = refOf(tree.text, "AXTextField");
  ASSERT_FALSE(check.empty() || send.empty() || field.empty()) << tree.text;

  size_t mark = app->lineCount();
  EXPECT_EQ(tools.call("press", {{"ref", check}}).text, "pressed");
  EXPECT_TRUE(app->waitForLine("checked 1", 5s, mark)) << "press toggles the real check box";

  EXPECT_EQ(tools.call("set_value", {{"ref", field}, {"value", "filled in"}}).text, "value set");
  EXPECT_TRUE(app->waitForLine("text filled in", 5s, mark));
  EXPECT_NE(tools.call("read_ui_tree", JSONValue::object()).text.find("value=\"filled in\""), std::string::npos)
      << "the value reads back through the tree";

  // Clicks land where the window's own layout says the button is.
  auto layout = app->waitForLine("layout send ", 1s);
  ASSERT_TRUE(layout);
  int x, y, w, h;
  ASSERT_EQ(std::sscanf(layout->c_str(), "layout send %d %d %d %d", &x, &y, &w, &h), 4);
  EXPECT_TRUE(tools.call("click", {{"x", x + w / 2}, {"y", y + h / 2}}).text.starts_with("clicked at "));
  EXPECT_TRUE(app->waitForLine("clicked Send", 5s, mark));

  // Select all with a modifier, then type over it with text no keyboard map holds.
  layout = app->waitForLine("layout edit ", 1s);
  ASSERT_TRUE(layout);
  ASSERT_EQ(std::sscanf(layout->c_str(), "layout edit %d %d %d %d", &x, &y, &w, &h), 4);
  tools.call("click", {{"x", x + w / 2}, {"y", y + h / 2}});
  EXPECT_EQ(tools.call("press_key", {{"key", "A"}, {"modifiers", {"Ctrl"}}}).text, "pressed A");
  EXPECT_TRUE(app->waitForLine("selection filled in", 5s, mark));
  EXPECT_EQ(tools.call("type_text", {{"text", "héllo wörld ✓ Ωμέγα"}}).text, "typed");
  EXPECT_TRUE(app->waitForLine("text héllo wörld ✓ Ωμέγα", 10s, mark)) << "typed text arrives intact";

  mark = app->lineCount();
  EXPECT_EQ(tools.call("scroll", {{"dy", -300}}).text, "scrolled");
  EXPECT_TRUE(app->waitForLine("wheel ", 5s, mark)) << "the wheel reaches the window";

  EXPECT_EQ(tools.call("press_key", {{"key", "Hyper"}}).text, "Unknown key Hyper");
  EXPECT_EQ(tools.call("press", {{"ref", "0.999"}}).text, "Ref 0.999 is stale; call read_ui_tree again.");
  EXPECT_EQ(tools.call("press", {{"ref", "zero"}}).text, "Refs start with 0 (from read_ui_tree).");
  EXPECT_FALSE(tools.call("read_ui_tree", {{"max_depth", 1e300}}).isError);
  EXPECT_EQ(tools.call("browser_eval", {{"js", "1"}}).text, "Not a browser window.");

  // The whole desktop, when the scope says so, lists the window by its application.
  ControlScope everything;
  everything.allWindows = true;
  everything.save(dir.file("all.json"));
  ToolServerClient desktopTools(dir.file("all.json"));
  EXPECT_NE(desktopTools.call("list_targets", JSONValue::object()).text.find("\u2014 Zorvane Qt test [app window, "),
            std::string::npos);

  // Minimised: no screenshot, and the text says why.
  XIconifyWindow(display->display(), window->windowID, display->screen());
  XFlush(display->display());
  ASSERT_TRUE(testing::waitUntil([&] { return !windows.window(window->windowID)->onScreen; }, 10s));
  EXPECT_TRUE(tools.call("screenshot", JSONValue::object())
                  .text.starts_with("The bonded window isn't on screen right now (minimized, or on another workspace)"));

  // Closed: every tool says so, and the server lives on.
  app->stop();
  EXPECT_EQ(tools.call("screenshot", JSONValue::object()).text,
            "The bonded window is gone (closed?). Ask the user to drop the piece again.");
  EXPECT_EQ(tools.call("read_ui_tree", JSONValue::object()).text,
            "The bonded window is gone (closed?). Ask the user to drop the piece again.");
}

// Every ref of a role in the tree, with the value each line shows ("" without one).
std::vector<std::pair<std::string, std::string>> refsOf(const std::string& tree, const std::string& role,
                                                       const std::string& label) {
  std::vector<std::pair<std::string, std::string>> found;
  std::regex line("\\[([0-9.]+)\\] " + role + " \"" + label + "\"(?: value=\"([^\"]*)\")?");
  for (std::sregex_iterator it(tree.begin(), tree.end(), line), end; it != end; ++it)
    found.push_back({(*it)[1].str(), (*it)[2].str()});
  return found;
}

TEST_F(WindowToolsTest, DrivesAGtkWindow) {
  if (testing::findProgram("gtk3-widget-factory").empty()) GTEST_SKIP() << "gtk3-widget-factory is not installed";
  X11WindowService windows(display);
  auto app = DesktopApp::start({"gtk3-widget-factory"}, {{"HOME", dir.path()}});
  ASSERT_TRUE(app);
  auto window = testing::waitForWindow(windows, app->pid(), 30s);
  ASSERT_TRUE(window);
  ToolServerClient tools(scopeFor(*window, "Widget Factory", "org.gtk.WidgetFactory"));
  ASSERT_TRUE(tools.ready());

  auto shot = tools.call("screenshot", JSONValue::object());
  ASSERT_FALSE(shot.isError) << shot.text;
  EXPECT_EQ(jpegSize(base64Decode(shot.imageBase64)), std::make_pair(int(window->width), int(window->height)));

  std::string tree = tools.call("read_ui_tree", JSONValue::object()).text;
  EXPECT_FALSE(refOf(tree, "AXButton").empty()) << tree;
  auto boxes = refsOf(tree, "AXCheckBox", "checkbutton");
  ASSERT_FALSE(boxes.empty()) << tree;

  // Some of the factory's check boxes are disabled and refuse; the first that takes the
  // press shows as checked when the tree is read again.
  std::string pressed;
  for (auto& [ref, value] : boxes) {
    if (value != "0") continue;
    auto result = tools.call("press", {{"ref", ref}});
    if (!result.isError) {
      pressed = ref;
      break;
    }
    EXPECT_TRUE(result.text.starts_with("AXPress failed (")) << result.text;
  }
  ASSERT_FALSE(pressed.empty()) << "no check box took the press";
  EXPECT_TRUE(testing::waitUntil(
      [&] {
        for (auto& [ref, value] : refsOf(tools.call("read_ui_tree", JSONValue::object()).text, "AXCheckBox",
                                         "checkbutton"))
          if (ref == pressed) return value == "1";
        return false;
      },
      10s));

  // An entry takes a value, read back through the tree.
  std::regex fieldLine("\\[([0-9.]+)\\] AXTextField");
  bool filled = false;
  for (std::sregex_iterator it(tree.begin(), tree.end(), fieldLine), end; it != end && !filled; ++it)
    filled = !tools.call("set_value", {{"ref", (*it)[1].str()}, {"value", "Zorvane wrote this"}}).isError;
  ASSERT_TRUE(filled);
  EXPECT_TRUE(testing::waitUntil(
      [&] {
        return tools.call("read_ui_tree", JSONValue::object()).text.find("value=\"Zorvane wrote this\"") !=
               std::string::npos;
      },
      10s));
}

TEST_F(WindowToolsTest, ScriptsAChromiumTab) {
  if (testing::findProgram("chromium").empty()) GTEST_SKIP() << "chromium is not installed";
  auto site = testing::PageServer::start({{"index.html", "<title>Zorvane page</title><body>Hello from the page</body>"},
                                          {"second.html", "<title>Second</title><body>Two</body>"}});
  ASSERT_TRUE(site);
  auto browser = testing::TestChromium::start(site->url("/index.html"), testing::freeLoopbackPort());
  ASSERT_TRUE(browser);
  X11WindowService windows(display);
  auto window = testing::waitForWindow(windows, browser->pid(), 30s);
  ASSERT_TRUE(window);
  ToolServerClient tools(scopeFor(*window, "Chromium", "org.chromium.Chromium"));
  ASSERT_TRUE(tools.ready());

  // The page loads on its own time: wait until the tab shows it.
  std::string info;
  testing::waitUntil(
      [&] {
        info = tools.call("get_target_info", JSONValue::object()).text;
        return info.find("Zorvane page") != std::string::npos;
      },
      20s);
  EXPECT_NE(info.find("\nfront tab: " + site->url("/index.html") + " \u2014 Zorvane page"), std::string::npos) << info;

  auto page = tools.call("browser_read_page", JSONValue::object());
  EXPECT_EQ(page.text, "Zorvane page\n" + site->url("/index.html") + "\n\nHello from the page");
  EXPECT_EQ(tools.call("browser_read_page", {{"max_chars", 7}}).text, "Zorvane");
  EXPECT_EQ(tools.call("browser_eval", {{"js", "6 * 7"}}).text, "42");
  auto thrown = tools.call("browser_eval", {{"js", "nope.nothing"}});
  EXPECT_TRUE(thrown.isError);
  EXPECT_TRUE(thrown.text.starts_with("JavaScript failed: ")) << thrown.text;

  EXPECT_EQ(tools.call("browser_navigate", {{"url", site->url("/second.html")}}).text,
            "navigating to " + site->url("/second.html"));
  EXPECT_TRUE(testing::waitUntil(
      [&] { return tools.call("browser_eval", {{"js", "document.title"}}).text == "Second"; }, 20s));
  EXPECT_FALSE(tools.call("screenshot", JSONValue::object()).isError);
}

// A browser started without a debugging port: its pages can't be scripted, and the
// answer says how to start it so that they can.
TEST_F(WindowToolsTest, BrowserWithoutDebuggingPort) {
  if (testing::findProgram("chromium").empty()) GTEST_SKIP() << "chromium is not installed";
  auto site = testing::PageServer::start({{"index.html", "<title>Plain</title>"}});
  ASSERT_TRUE(site);
  auto browser = testing::TestChromium::start(site->url("/index.html"), std::nullopt);
  ASSERT_TRUE(browser);
  X11WindowService windows(display);
  auto window = testing::waitForWindow(windows, browser->pid(), 30s);
  ASSERT_TRUE(window);
  ToolServerClient tools(scopeFor(*window, "Chromium", "org.chromium.Chromium"));
  ASSERT_TRUE(tools.ready());
  auto eval = tools.call("browser_eval", {{"js", "1"}});
  EXPECT_TRUE(eval.isError);
  EXPECT_NE(eval.text.find("--remote-debugging-port"), std::string::npos) << eval.text;
  EXPECT_EQ(tools.call("get_target_info", JSONValue::object()).text.find("front tab"), std::string::npos);
}

}  // namespace
}  // namespace zorvane
