// The window tools end to end: a real `zorvane --mcp` whose scope names a real window,
// driven the way an agent drives it, with the applications telling what reached them.
#include <gtest/gtest.h>

#include <X11/Xutil.h>

#include <regex>

#include "core/geometry/geometry.h"
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
  std::string scopeFor(const WindowInfo& window, const std::string& name, const std::string& bundleID,
                       const std::string& file = "scope.json") {
    ControlScope scope;
    scope.entries.push_back({name, "app window", window.windowID, bundleID, std::nullopt});
    std::string path = dir.file(file);
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

// Two windows of one Chromium, each the scope of its own tool server: the page is read,
// scripted and navigated, and every tool reaches its own window's page, input and nothing
// else; when the two can't be told apart, the browser tools refuse rather than guess.
TEST_F(WindowToolsTest, EachChromiumWindowReachesOnlyItsOwnPage) {
  if (testing::findProgram("chromium").empty()) GTEST_SKIP() << "chromium is not installed";
  // Each page counts the presses and keys that reach it.
  const std::string counting = "<style>html,body{margin:0;height:100%}</style><script>var clicks = 0, typed = '';"
                               "addEventListener('mousedown', () => clicks++);"
                               "addEventListener('keydown', e => typed += e.key);</script>";
  auto site = testing::PageServer::start({{"alpha.html", "<title>Alpha page</title>" + counting + "<body>alpha text"},
                                          {"beta.html", "<title>Beta page</title>" + counting + "<body>beta text"},
                                          {"third.html", "<title>Third</title><body>third text"}});
  ASSERT_TRUE(site);
  auto browser = testing::TestChromium::start(site->url("/alpha.html"), testing::freeLoopbackPort());
  ASSERT_TRUE(browser);
  ASSERT_TRUE(browser->openWindow(site->url("/beta.html")));
  X11WindowService windows(display);
  auto titled = [&](const std::string& prefix) -> std::optional<WindowInfo> {
    for (const WindowInfo& window : windows.windows())
      if (window.ownerPID == browser->pid() && window.onScreen && window.title.starts_with(prefix)) return window;
    return std::nullopt;
  };
  ASSERT_TRUE(testing::waitUntil([&] { return titled("Alpha page") && titled("Beta page"); }, 30s));
  const uint32_t alpha = titled("Alpha page")->windowID, beta = titled("Beta page")->windowID;
  // Side by side, so that a point outside one window is on the other one's page.
  auto place = [&](uint32_t window, Rect frame) {
    XMoveResizeWindow(display->display(), window, int(frame.x), int(frame.y), unsigned(frame.width),
                      unsigned(frame.height));
    XSync(display->display(), False);
    return testing::waitUntil(
        [&] {
          auto now = windows.window(window);
          return now && Rect{now->x, now->y, now->width, now->height} == frame;
        },
        10s);
  };
  ASSERT_TRUE(place(alpha, {0, 0, 600, 700}) && place(beta, {640, 0, 600, 700}));
  ToolServerClient toolsA(scopeFor(*windows.window(alpha), "Alpha", "org.chromium.Chromium", "alpha.json"));
  ToolServerClient toolsB(scopeFor(*windows.window(beta), "Beta", "org.chromium.Chromium", "beta.json"));
  ASSERT_TRUE(toolsA.ready() && toolsB.ready());
  auto eval = [](ToolServerClient& tools, const std::string& js) {
    return tools.call("browser_eval", {{"js", js}}).text;
  };

  // Beta's window is the browser's most recently active: Alpha's tools still read Alpha.
  std::string alphaPage = "Alpha page\n" + site->url("/alpha.html") + "\n\nalpha text";
  ASSERT_TRUE(testing::waitUntil([&] { return toolsA.call("browser_read_page", {}).text == alphaPage; }, 20s))
      << toolsA.call("browser_read_page", {}).text;
  EXPECT_EQ(toolsB.call("browser_read_page", {}).text, "Beta page\n" + site->url("/beta.html") + "\n\nbeta text");
  std::string info = toolsA.call("get_target_info", {}).text;
  EXPECT_NE(info.find("\nfront tab: " + site->url("/alpha.html") + " \u2014 Alpha page"), std::string::npos) << info;
  EXPECT_EQ(toolsA.call("browser_read_page", {{"max_chars", 5}}).text, "Alpha");
  EXPECT_EQ(eval(toolsA, "6 * 7"), "42");
  auto thrown = toolsA.call("browser_eval", {{"js", "nope.nothing"}});
  EXPECT_TRUE(thrown.isError);
  EXPECT_TRUE(thrown.text.starts_with("JavaScript failed: ")) << thrown.text;
  EXPECT_FALSE(toolsA.call("screenshot", JSONValue::object()).isError);

  // A click outside Alpha's frame, where Beta's page is, is refused; inside, it lands.
  auto outside = toolsA.call("click", {{"x", 940}, {"y", 350}});
  EXPECT_TRUE(outside.isError);
  EXPECT_NE(outside.text.find("Point 940,350 lies outside the window, which is 600x700 points"), std::string::npos)
      << outside.text;
  EXPECT_EQ(toolsA.call("click", {{"x", 300}, {"y", 350}}).text, "clicked at 300,350 (screen)");
  EXPECT_TRUE(testing::waitUntil([&] { return eval(toolsA, "clicks") == "1"; }, 5s));
  EXPECT_EQ(eval(toolsB, "clicks"), "0") << "the other window was untouched";

  // Keys go to the window that asked for them, which is brought forward first.
  EXPECT_EQ(toolsB.call("type_text", {{"text", "hi"}}).text, "typed");
  EXPECT_EQ(toolsA.call("press_key", {{"key", "x"}}).text, "pressed x");
  EXPECT_TRUE(testing::waitUntil([&] { return eval(toolsA, "typed") == "x" && eval(toolsB, "typed") == "hi"; }, 5s))
      << eval(toolsA, "typed") << " / " << eval(toolsB, "typed");

  // Navigating one window leaves the other where it was.
  EXPECT_EQ(toolsA.call("browser_navigate", {{"url", site->url("/third.html")}}).text,
            "navigating to " + site->url("/third.html"));
  EXPECT_TRUE(testing::waitUntil([&] { return eval(toolsA, "document.title") == "Third"; }, 20s));
  EXPECT_EQ(eval(toolsB, "location.href"), site->url("/beta.html"));

  // In the same place with the same size, the titles still tell them apart...
  ASSERT_TRUE(place(beta, {0, 0, 600, 700}));
  EXPECT_TRUE(testing::waitUntil([&] { return eval(toolsB, "document.title") == "Beta page"; }, 10s));
  EXPECT_EQ(eval(toolsA, "document.title"), "Third");
  // ... and once Alpha takes Beta's title too, nothing does: both refuse.
  EXPECT_EQ(eval(toolsA, "document.title = 'Beta page'"), "Beta page");
  ASSERT_TRUE(testing::waitUntil([&] { return windows.window(alpha)->title == "Beta page - Chromium"; }, 10s));
  for (ToolServerClient* tools : {&toolsA, &toolsB}) {
    auto refused = tools->call("browser_read_page", {});
    EXPECT_TRUE(refused.isError);
    EXPECT_TRUE(refused.text.starts_with("Several Chromium windows have this window's place, size and title "
                                         "(\"Beta page - Chromium\")"))
        << refused.text;
    EXPECT_EQ(tools->call("get_target_info", {}).text.find("front tab"), std::string::npos);
  }
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
