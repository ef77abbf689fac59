#include "app/control/window_control.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <numeric>

#include "platform/fake/fake_desktop.h"

namespace zorvane {
namespace {

// One window of pid 42 at (100, 50), 800×600, with an accessibility tree the tests fill.
class WindowControlTest : public ::testing::Test {
 protected:
  FakeDesktop desktop;
  std::vector<int> sleeps;
  std::shared_ptr<FakeElement> root = FakeElement::make("AXWindow", "Notes", Rect{100, 50, 800, 600});

  void SetUp() override {
    desktop.windows.windowList = {{7, 42, 100, 50, 800, 600, 0, "Notes", true}};
    desktop.accessibility.windowsByPID[42] = {root};
  }
  WindowControl control(std::string bundle = "org.example.Notes") {
    return WindowControl(7, std::move(bundle), std::nullopt, desktop.services, [this](int us) { sleeps.push_back(us); });
  }
  std::string text(const std::string& tool, const JSONObject& args = {},
                   std::optional<BrowserApp> browser = std::nullopt) {
    try {
      std::string out;
      for (auto& item : control(browser ? "org.chromium.Chromium" : "org.example.Notes").call(tool, args, browser))
        if (auto* t = std::get_if<MCPContent::Text>(&item.value)) out += t->text;
      return out;
    } catch (const MCPToolError& error) {
      return "ERROR " + std::string(error.message());
    }
  }
};

std::string base64Decode(const std::string& text) {
  std::string out;
  uint32_t bits = 0;
  int count = 0;
  for (char c : text) {
    const char* alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const char* at = std::strchr(alphabet, c);
    if (c == '=' || !at) continue;
    bits = bits << 6 | uint32_t(at - alphabet);
    if ((count += 6) >= 8) out += char(bits >> (count -= 8));
  }
  return out;
}

// The size in a JPEG's start-of-frame header.
std::pair<int, int> jpegSize(const std::string& jpeg) {
  for (size_t i = 2; i + 8 < jpeg.size(); ++i) {
    if (uint8_t(jpeg[i]) == 0xFF && (uint8_t(jpeg[i + 1]) == 0xC0 || uint8_t(jpeg[i + 1]) == 0xC2))
      return {uint8_t(jpeg[i + 7]) << 8 | uint8_t(jpeg[i + 8]), uint8_t(jpeg[i + 5]) << 8 | uint8_t(jpeg[i + 6])};
  }
  return {0, 0};
}

TEST_F(WindowControlTest, InfoAndScreenshots) {
  EXPECT_EQ(text("get_target_info"),
            "app: org.example.Notes\npid: 42\nwindow: 7 \"Notes\"\n"
            "frame (points, top-left screen coords): 100,50 800x600\non screen: true");
  desktop.browsers.frontTabAnswer = "http://127.0.0.1:8000/\nHome";
  EXPECT_TRUE(text("get_target_info", {}, BrowserApp::chromium)
                  .ends_with("on screen: true\nfront tab: http://127.0.0.1:8000/ \u2014 Home"));
  desktop.browsers.frontTabAnswer.reset();
  EXPECT_TRUE(text("get_target_info", {}, BrowserApp::chromium).ends_with("on screen: true"));

  // A wide window comes down to the bound, and the text says by how much.
  desktop.windows.windowList[0].width = 2000;
  desktop.windows.windowList[0].height = 1000;
  desktop.capture.shots[7] = {4000, 2000, 200, 30, 30};
  auto shot = control().call("screenshot", {}, std::nullopt);
  ASSERT_EQ(shot.size(), 2u);
  auto& image = std::get<MCPContent::Image>(shot[0].value);
  EXPECT_EQ(image.mimeType, "image/jpeg");
  EXPECT_EQ(jpegSize(base64Decode(image.base64)), std::make_pair(1568, 784));
  EXPECT_EQ(std::get<MCPContent::Text>(shot[1].value).text,
            "Window 2000x1000 points. Image is scaled by 0.784; divide image coordinates by that before clicking.");

  desktop.windows.windowList[0].width = 1568;
  EXPECT_EQ(text("screenshot"), "Window 1568x1000 points.");

  desktop.windows.windowList[0].onScreen = false;
  int before = desktop.capture.captures;
  EXPECT_TRUE(text("screenshot").starts_with("ERROR The bonded window isn't on screen right now (minimized, or "));
  EXPECT_EQ(desktop.capture.captures, before) << "no capture of a hidden window";

  desktop.windows.windowList[0].onScreen = true;
  desktop.capture.shots.clear();
  EXPECT_TRUE(text("screenshot").starts_with("ERROR Screenshot failed."));
  desktop.windows.windowList.clear();
  EXPECT_EQ(text("screenshot"),
            "ERROR The bonded window is gone (closed?). Ask the user to drop the piece again.");
}

TEST_F(WindowControlTest, TreeLinesRefsAndBounds) {
  root->add(FakeElement::make("AXStaticText", "Title", Rect{110, 60, 200, 20}));
  root->add(FakeElement::make("AXButton"));  // printed for its role alone
  auto group = root->add(FakeElement::make("AXGroup"));
  auto field = group->add(FakeElement::make("AXTextField", "", Rect{120, 100, 300, 24}));
  field->descriptionText = "Search";
  field->valueText = "two\nlines";
  // A chain 22 deep ends in a labelled leaf: indented by 12 blanks, not 22.
  auto deep = root->add(FakeElement::make("AXGroup"));
  for (int i = 0; i < 20; ++i) deep = deep->add(FakeElement::make("AXGroup"));
  deep->add(FakeElement::make("AXStaticText", "deep"));

  std::string tree = text("read_ui_tree");
  EXPECT_EQ(tree.substr(0, tree.find('\n')), "window \"Notes\" 800x600; frames are window-relative points");
  EXPECT_NE(tree.find("\n[0] AXWindow \"Notes\" @0,0 800x600\n"), std::string::npos) << tree;
  EXPECT_NE(tree.find("\n [0.0] AXStaticText \"Title\" @10,10 200x20\n [0.1] AXButton\n"), std::string::npos);
  EXPECT_NE(tree.find("\n  [0.2.0] AXTextField \"Search\" value=\"two lines\" @20,50 300x24\n"), std::string::npos);
  EXPECT_EQ(tree.find("[0.2] AXGroup"), std::string::npos) << "an empty group prints no line";
  std::string deepRef = "0.3";
  for (int i = 0; i < 21; ++i) deepRef += ".0";
  EXPECT_NE(tree.find("\n            [" + deepRef + "] AXStaticText \"deep\""), std::string::npos) << tree;
  EXPECT_EQ(text("read_ui_tree", {{"max_depth", 0}}),
            "window \"Notes\" 800x600; frames are window-relative points\n[0] AXWindow \"Notes\" @0,0 800x600");
  EXPECT_EQ(text("read_ui_tree", {{"max_depth", 1e300}}), tree) << "a huge depth is no depth limit";

  // 700 labelled elements: 600 lines and the truncation line.
  root->kids.clear();
  for (int i = 0; i < 700; ++i) root->add(FakeElement::make("AXStaticText", "item " + std::to_string(i)));
  std::string big = text("read_ui_tree");
  EXPECT_EQ(std::count(big.begin(), big.end(), '\n'), 601);
  EXPECT_TRUE(big.ends_with("\n\u2026 truncated; use max_depth or a screenshot"));
}

TEST_F(WindowControlTest, PressAndSetValueFollowRefs) {
  auto box = root->add(FakeElement::make("AXCheckBox", "Remember"));
  auto field = root->add(FakeElement::make("AXTextField"));
  EXPECT_EQ(text("press", {{"ref", "0.0"}}), "pressed");
  EXPECT_EQ(text("press", {{"ref", "0.x.0"}}), "pressed") << "parts that are no number are dropped";
  EXPECT_EQ(box->presses, 2);
  EXPECT_EQ(text("press", {{"ref", "0"}}), "pressed");
  EXPECT_EQ(root->presses, 1) << "ref 0 is the window itself";
  EXPECT_EQ(text("press", {{"ref", "1.0"}}), "ERROR Refs start with 0 (from read_ui_tree).");
  EXPECT_EQ(text("press", {}), "ERROR Refs start with 0 (from read_ui_tree).");
  EXPECT_EQ(text("press", {{"ref", "0.2"}}), "ERROR Ref 0.2 is stale; call read_ui_tree again.");
  EXPECT_EQ(text("press", {{"ref", "0.-1"}}), "ERROR Ref 0.-1 is stale; call read_ui_tree again.");
  EXPECT_EQ(text("press", {{"ref", "0.99999999999999999999999"}}),
            "ERROR Ref 0.99999999999999999999999 is stale; call read_ui_tree again.");
  box->pressCode = -25204;
  EXPECT_EQ(text("press", {{"ref", "0.0"}}), "ERROR AXPress failed (-25204); try click instead.");

  EXPECT_EQ(text("set_value", {{"ref", "0.1"}, {"value", "héllo"}}), "value set");
  EXPECT_EQ(field->valueText, "héllo");
  EXPECT_TRUE(field->focused);
  field->setValueCode = 3;
  EXPECT_EQ(text("set_value", {{"ref", "0.1"}, {"value", "x"}}),
            "ERROR Setting the value failed (3); try click + type_text.");

  desktop.accessibility.isTrusted = false;
  EXPECT_TRUE(text("press", {{"ref", "0.0"}}).starts_with("ERROR Zorvane can't reach the accessibility bus"));
  desktop.accessibility.isTrusted = true;
  desktop.accessibility.windowsByPID.clear();
  EXPECT_EQ(text("read_ui_tree"), "ERROR Couldn't read this app's windows through the accessibility bus.");
}

TEST_F(WindowControlTest, SeveralWindowsPickTheNearestFrame) {
  auto other = FakeElement::make("AXWindow", "Other", Rect{0, 0, 300, 200});
  auto unreadable = FakeElement::make("AXWindow", "No frame");
  auto near = FakeElement::make("AXWindow", "Near", Rect{102, 48, 800, 600});
  desktop.accessibility.windowsByPID[42] = {unreadable, other, near};
  EXPECT_NE(text("read_ui_tree", {{"max_depth", 0}}).find("[0] AXWindow \"Near\""), std::string::npos);
}

TEST_F(WindowControlTest, InputGoesToTheWindowBroughtForward) {
  EXPECT_EQ(text("click", {{"x", "10"}, {"y", 20.9}, {"button", "middle"}}), "clicked at 110,70 (screen)");
  EXPECT_EQ(desktop.windows.activated, std::vector<uint32_t>{7});
  EXPECT_EQ(desktop.input.events,
            (std::vector<std::string>{"move 110,70.9", "left down 110,70.9 #1", "left up 110,70.9 #1"}));
  EXPECT_EQ(sleeps, (std::vector<int>{150000, 20000, 20000}));

  desktop.input.events.clear();
  text("click", {{"x", "abc"}, {"button", "right"}, {"double", true}});
  EXPECT_EQ(desktop.input.events,
            (std::vector<std::string>{"move 100,50", "right down 100,50 #1", "right up 100,50 #1",
                                      "right down 100,50 #2", "right up 100,50 #2"}));

  desktop.input.events.clear();
  EXPECT_EQ(text("press_key", {{"key", "RETURN"}, {"modifiers", {"Cmd", 3, "shift", "hyper"}}}), "pressed RETURN");
  EXPECT_EQ(desktop.input.events,
            (std::vector<std::string>{"key 36 down flags=0x120000", "key 36 up flags=0x120000"}));
  size_t activations = desktop.windows.activated.size();
  EXPECT_EQ(text("press_key", {{"key", "Hyper"}}), "ERROR Unknown key Hyper");
  EXPECT_EQ(desktop.windows.activated.size(), activations + 1) << "brought forward before the lookup";
  EXPECT_EQ(text("press_key", {}), "ERROR Unknown key ");

  // Where the window manager says which window has the keyboard, its word decides.
  desktop.input.events.clear();
  desktop.windows.active = 99;
  EXPECT_TRUE(text("press_key", {{"key", "a"}}).starts_with("ERROR The window didn't become the active one"));
  EXPECT_TRUE(desktop.input.events.empty()) << "no key while another window has the keyboard";
  desktop.windows.active = 7;
  EXPECT_EQ(text("press_key", {{"key", "a"}}), "pressed a");
  desktop.windows.active.reset();

  // Text goes in chunks of at most 16 UTF-16 units; a character outside the BMP counts
  // two and is never split.
  desktop.input.events.clear();
  EXPECT_EQ(text("type_text", {{"text", "ab\U0001F600cdefghijklmnopqrstu"}}), "typed");
  EXPECT_EQ(desktop.input.events,
            (std::vector<std::string>{"text ab\U0001F600cdefghijklmn", "text opqrstu"}));
  desktop.input.events.clear();
  EXPECT_EQ(text("type_text", {}), "typed");
  EXPECT_TRUE(desktop.input.events.empty());

  // Scrolling doesn't activate; it defaults to the centre; amounts are held to 32 bits.
  desktop.input.events.clear();
  activations = desktop.windows.activated.size();
  EXPECT_EQ(text("scroll", {{"dy", 120}}), "scrolled");
  EXPECT_EQ(text("scroll", {{"x", "nope"}, {"dx", -5}, {"dy", -1e30}}), "scrolled");
  EXPECT_EQ(desktop.input.events,
            (std::vector<std::string>{"move 500,350", "scroll -120,0", "move 100,350", "scroll 2147483647,5"}));
  EXPECT_EQ(desktop.windows.activated.size(), activations);

  desktop.accessibility.isTrusted = false;
  EXPECT_TRUE(text("type_text", {{"text", "x"}}).starts_with("ERROR Zorvane can't reach the accessibility bus"));
  EXPECT_EQ(text("frobnicate"), "ERROR Unknown tool frobnicate");
}

// A desktop whose window manager answers activation as the test says: it may refuse,
// ignore the request, or bring the window to the front only after a few looks.
class StackingWindows final : public WindowService {
 public:
  std::vector<WindowInfo> list;  // front to back
  bool accepts = true;
  int looksBeforeFront = 0;  // after an accepted activation; -1: never comes to the front
  std::vector<uint32_t> activated;
  std::function<void(std::vector<WindowInfo>&)> onLook;  // the user changing the stacking

  std::vector<WindowInfo> windows() override {
    if (onLook) onLook(list);
    if (pending && looksBeforeFront >= 0 && looks++ >= looksBeforeFront) {
      // In front of its layer and the lower ones; higher layers stay in front of it.
      auto it = std::find_if(list.begin(), list.end(), [&](const WindowInfo& w) { return w.windowID == *pending; });
      if (it != list.end()) {
        WindowInfo raised = *it;
        list.erase(it);
        auto below = [&](const WindowInfo& w) { return w.layer <= raised.layer; };
        list.insert(std::find_if(list.begin(), list.end(), below), raised);
      }
      pending.reset();
    }
    return list;
  }
  std::optional<ApplicationInfo> application(int32_t) override { return std::nullopt; }
  std::optional<WindowInfo> window(uint32_t id) override {
    for (const WindowInfo& w : list)
      if (w.windowID == id) return w;
    return std::nullopt;
  }
  bool activate(uint32_t id) override {
    activated.push_back(id);
    if (accepts) pending = id, looks = 0;
    return accepts;
  }

 private:
  std::optional<uint32_t> pending;
  int looks = 0;
};

// Window 7 (800x600 at 100,50) behind a terminal that covers the whole screen.
class WindowInputTest : public WindowControlTest {
 protected:
  StackingWindows stack;
  DesktopServices services{stack, desktop.accessibility, desktop.input, desktop.capture, desktop.browsers};
  const WindowInfo terminal{9, 77, 0, 0, 1280, 800, 0, "Terminal", true};

  void SetUp() override {
    WindowControlTest::SetUp();
    stack = StackingWindows{};
    stack.list = {terminal, desktop.windows.windowList[0]};
  }
  std::string run(const std::string& tool, const JSONObject& args) {
    try {
      WindowControl control(7, "org.example.Notes", std::nullopt, services, [this](int us) { sleeps.push_back(us); });
      auto result = control.call(tool, args, std::nullopt);
      return std::get<MCPContent::Text>(result.at(0).value).text;
    } catch (const MCPToolError& error) {
      return "ERROR " + std::string(error.message());
    }
  }
};

// Keys are sent only once the window reads back as the front one; a refused or ignored
// activation sends none, after a bounded wait.
TEST_F(WindowInputTest, KeysWaitForTheWindowToBeActive) {
  const std::vector<int> pollsFor1s(20, 50000);
  std::vector<int> ignoredSleeps = {150000};
  ignoredSleeps.insert(ignoredSleeps.end(), pollsFor1s.begin(), pollsFor1s.end());
  struct Case {
    const char* name;
    bool accepts;
    int looksBeforeFront;
    std::string outcome;  // "" when the keys go through
    std::vector<int> sleeps;
  };
  const Case cases[] = {
      {"at once", true, 0, "", {150000}},
      {"after two looks", true, 2, "", {150000, 50000, 50000}},
      {"refused", false, 0,
       "ERROR The desktop refused to activate the window, so no keys were sent. Ask the user to bring it forward, "
       "then retry.",
       {150000}},
      {"ignored", true, -1,
       "ERROR The window didn't become the active one (another window stayed in front of it), so no keys were sent. "
       "Ask the user to bring it forward, then retry.",
       ignoredSleeps},
  };
  for (const Case& test : cases) {
    for (const char* tool : {"type_text", "press_key"}) {
      SCOPED_TRACE(std::string(test.name) + " " + tool);
      SetUp();
      stack.accepts = test.accepts;
      stack.looksBeforeFront = test.looksBeforeFront;
      desktop.input.events.clear();
      sleeps.clear();
      std::string result = run(tool, {{"text", "secret"}, {"key", "return"}});
      EXPECT_EQ(stack.activated, std::vector<uint32_t>{7});
      // The wait for the window; pacing of the keys may follow.
      EXPECT_EQ(std::vector<int>(sleeps.begin(), sleeps.begin() + std::min(sleeps.size(), test.sleeps.size())),
                test.sleeps);
      if (!test.outcome.empty()) {
        EXPECT_EQ(sleeps.size(), test.sleeps.size());
        EXPECT_EQ(result, test.outcome);
        EXPECT_TRUE(desktop.input.events.empty()) << "keys went to whatever had the focus";
      } else {
        EXPECT_FALSE(result.starts_with("ERROR")) << result;
        EXPECT_FALSE(desktop.input.events.empty());
      }
    }
  }

  // Typing stops when the window loses the keyboard part-way; the rest doesn't follow.
  SetUp();
  stack.onLook = [&](std::vector<WindowInfo>& list) {
    if (!desktop.input.events.empty()) list = {terminal, desktop.windows.windowList[0]};
  };
  EXPECT_EQ(run("type_text", {{"text", std::string(20, 'a') + "\u00e9"}}),
            "ERROR Typing stopped after 16 of 21 characters: the window is no longer the active one.");
  EXPECT_EQ(desktop.input.events, std::vector<std::string>{"text " + std::string(16, 'a')});

  // Windows of higher layers (a panel, a window kept above) stay in front of any active
  // window and don't stand in the way.
  SetUp();
  stack.list = {{3, 5, 0, 0, 1280, 30, 20, "Panel", true}, desktop.windows.windowList[0], terminal};
  EXPECT_EQ(run("press_key", {{"key", "tab"}}), "pressed tab");
}

// Points outside the frame or off the screen are refused before anything is raised; a
// point another window keeps covering is refused after the wait, and the click happens
// only where the window shows.
TEST_F(WindowInputTest, ClicksAndScrollsStayInTheWindow) {
  const char* outside = "lies outside the window, which is 800x600 points: x and y are window points, "
                        "0 <= x < 800 and 0 <= y < 600. Nothing was ";
  struct Case {
    const char* tool;
    JSONObject args;
    std::string result;
  };
  const Case refusals[] = {
      {"click", {{"x", 800}, {"y", 10}}, "ERROR Point 800,10 " + std::string(outside) + "clicked."},
      {"click", {{"x", 10}, {"y", -1}}, "ERROR Point 10,-1 " + std::string(outside) + "clicked."},
      {"click", {{"x", "1e12"}, {"y", 0}}, "ERROR Point 1000000000000,0 " + std::string(outside) + "clicked."},
      {"scroll", {{"y", 600}, {"dy", 10}}, "ERROR Point 400,600 " + std::string(outside) + "scrolled."},
      {"scroll", {{"x", -0.5}}, "ERROR Point -0.5,300 " + std::string(outside) + "scrolled."},
      {"scroll", {{"dy", 10}},
       "ERROR Another window covers this one at point 400,300, so nothing was scrolled. Click into this window to "
       "bring it forward, or pick a point it doesn't cover."},
  };
  for (const Case& test : refusals) {
    SCOPED_TRACE(test.result);
    EXPECT_EQ(run(test.tool, test.args), test.result);
  }
  EXPECT_TRUE(stack.activated.empty()) << "nothing is raised for a refused point";
  EXPECT_TRUE(desktop.input.events.empty());

  // A window off the left edge: its left part can't be reached.
  stack.list[1].x = -50;
  EXPECT_EQ(run("click", {{"x", 10}, {"y", 10}}),
            "ERROR Point 10,10 of the window lies off the screen. Nothing was clicked. Ask the user to move the window "
            "fully onto the screen.");
  stack.list[1].x = 100;

  // A window kept above covers the window's top left corner, even once it is in front.
  stack.list = {{8, 78, 100, 50, 200, 100, 3, "Sticky note", true}, terminal, desktop.windows.windowList[0]};
  sleeps.clear();
  EXPECT_EQ(run("click", {{"x", 20}, {"y", 20}}),
            "ERROR Another window stays in front of this one at point 20,20, so nothing was clicked. Pick a point it "
            "doesn't cover, or ask the user to move it away.");
  EXPECT_EQ(std::accumulate(sleeps.begin(), sleeps.end(), 0), 150000 + 1000000) << "a bounded wait";
  EXPECT_TRUE(desktop.input.events.empty());
  EXPECT_EQ(run("click", {{"x", 300}, {"y", 20}}), "clicked at 400,70 (screen)");
  EXPECT_EQ(run("scroll", {{"x", 300}, {"y", 20}, {"dy", 5}}), "scrolled");
  EXPECT_EQ(desktop.input.events, (std::vector<std::string>{"move 400,70", "left down 400,70 #1", "left up 400,70 #1",
                                                            "move 400,70", "scroll -5,0"}));
}

TEST_F(WindowControlTest, BrowserTools) {
  EXPECT_EQ(text("browser_eval", {{"js", "1+1"}}), "ERROR Not a browser window.");
  desktop.browsers.frontTabAnswer = "http://127.0.0.1/\nPage";
  desktop.browsers.evaluateAnswer = "Page\nhttp://127.0.0.1/\n\n" + std::string(100000, 'x');
  std::string page = text("browser_read_page", {}, BrowserApp::chromium);
  EXPECT_EQ(page.size(), 40000u);
  EXPECT_TRUE(page.starts_with("Page\nhttp://127.0.0.1/\n\nxxx"));
  EXPECT_EQ(desktop.browsers.evaluated.back(),
            "document.title + '\\n' + location.href + '\\n\\n' + document.body.innerText");
  EXPECT_EQ(text("browser_read_page", {{"max_chars", -5}}, BrowserApp::chromium), "");
  EXPECT_EQ(text("browser_read_page", {{"max_chars", "10"}}, BrowserApp::chromium).size(), 40000u);

  desktop.browsers.evaluateFailure = "Uncaught ReferenceError: nope is not defined";
  EXPECT_EQ(text("browser_eval", {{"js", "nope"}}, BrowserApp::chromium),
            "ERROR JavaScript failed: Uncaught ReferenceError: nope is not defined");
  desktop.browsers.frontTabAnswer.reset();
  EXPECT_EQ(text("browser_eval", {{"js", "1"}}, BrowserApp::chromium), "ERROR no front window")
      << "a browser that can't be scripted says why, as it is";

  EXPECT_EQ(text("browser_navigate", {{"url", "http://127.0.0.1/b"}}, BrowserApp::chromium),
            "navigating to http://127.0.0.1/b");
  desktop.browsers.navigateFailure = "net::ERR_NAME_NOT_RESOLVED";
  EXPECT_EQ(text("browser_navigate", {{"url", "http://x/"}}, BrowserApp::chromium),
            "ERROR Navigate failed: net::ERR_NAME_NOT_RESOLVED");

  // The scripting side is told which window to act in, and can read it again while the
  // browser retitles it.
  BrowserWindow asked = desktop.browsers.windows.back();
  EXPECT_EQ(asked.windowID, 7u);
  EXPECT_EQ(asked.frame, (Rect{100, 50, 800, 600}));
  EXPECT_EQ(asked.title, "Notes");
  desktop.windows.windowList[0].title = "Notes - edited";
  ASSERT_TRUE(asked.reread && asked.reread(asked));
  EXPECT_EQ(asked.title, "Notes - edited");
  desktop.windows.windowList.clear();
  EXPECT_FALSE(asked.reread(asked)) << "a closed window can't be read again";
}

}  // namespace
}  // namespace zorvane
