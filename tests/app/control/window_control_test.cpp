#include "app/control/window_control.h"

#include <gtest/gtest.h>

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
}

}  // namespace
}  // namespace zorvane
