#include "platform/linux/atspi_accessibility.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <cstdlib>

#include "desktop/desktop_apps.h"
#include "support/test_support.h"

namespace zorvane {
namespace {

using namespace std::chrono_literals;
using testing::DesktopApp;

struct Found {
  std::shared_ptr<AccessibleElement> element;
  std::vector<size_t> path;  // child indices from the window
  std::string role, title;
  std::optional<std::string> value;
};

void collect(AccessibleElement& element, std::vector<size_t> path, std::vector<Found>& out) {
  auto children = element.children();
  if (!children || path.size() > 30) return;
  for (size_t index = 0; index < children->size(); ++index) {
    auto& child = (*children)[index];
    std::vector<size_t> childPath = path;
    childPath.push_back(index);
    out.push_back({child, childPath, child->role(), child->title(), child->value()});
    collect(*child, childPath, out);
  }
}

// The largest window of the process: the main one, not a pop-up.
std::shared_ptr<AccessibleElement> mainWindow(AccessibilityService& accessibility, pid_t pid) {
  std::shared_ptr<AccessibleElement> best;
  double bestArea = 0;
  for (auto& window : accessibility.windows(pid)) {
    auto frame = window->frame();
    if (frame && frame->width * frame->height > bestArea) best = window, bestArea = frame->width * frame->height;
  }
  return best;
}

// The element at `path`, read again from the live tree, as a caller holding a ref does.
std::shared_ptr<AccessibleElement> resolve(AccessibilityService& accessibility, pid_t pid,
                                           const std::vector<size_t>& path) {
  auto element = mainWindow(accessibility, pid);
  for (size_t index : path) {
    if (!element) return nullptr;
    auto children = element->children();
    if (!children || index >= children->size()) return nullptr;
    element = (*children)[index];
  }
  return element;
}

std::vector<Found> withRole(const std::vector<Found>& all, const std::string& role, const std::string& title = "*") {
  std::vector<Found> found;
  for (const Found& item : all)
    if (item.role == role && (title == "*" || item.title == title)) found.push_back(item);
  return found;
}

Point centreOf(const Rect& frame) { return {frame.x + frame.width / 2, frame.y + frame.height / 2}; }

class AtspiAccessibilityTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!std::getenv("DISPLAY")) GTEST_SKIP() << "no display; run under scripts/headless-desktop.sh";
    factory_ = testing::findProgram("gtk3-widget-factory");
    if (factory_.empty()) GTEST_SKIP() << "gtk3-widget-factory is not installed (Debian: gtk-3-examples)";
    ASSERT_TRUE(accessibility_.trusted()) << "the accessibility bus doesn't answer";
    app_ = DesktopApp::start({factory_}, {{"HOME", home_.path()}});
    ASSERT_TRUE(app_);
    ASSERT_TRUE(testing::waitUntil([&] { return mainWindow(accessibility_, app_->pid()) != nullptr; }, 30s));
  }

  std::string factory_;
  testing::TempDir home_;
  AtspiAccessibility accessibility_;
  std::unique_ptr<DesktopApp> app_;
};

// The widget factory's tree reads in the AX vocabulary with values in their string form,
// and its controls can be pressed, filled and found under a point.
TEST_F(AtspiAccessibilityTest, ReadsAndDrivesARealGtkWindow) {
  pid_t pid = app_->pid();
  auto window = mainWindow(accessibility_, pid);
  EXPECT_EQ(window->role(), "AXWindow");
  std::vector<Found> all;
  collect(*window, {}, all);

  EXPECT_FALSE(withRole(all, "AXButton", "Close").empty());
  auto page1 = withRole(all, "AXRadioButton", "Page 1");
  ASSERT_FALSE(page1.empty());
  EXPECT_EQ(page1[0].value, "1");
  EXPECT_FALSE(withRole(all, "AXStaticText", "label").empty());
  EXPECT_FALSE(withRole(all, "AXCell", "Andrea").empty());
  EXPECT_FALSE(withRole(all, "AXPopUpButton", "Left").empty());
  EXPECT_FALSE(withRole(all, "AXComboBox").empty());  // the ones with an entry
  auto sliders = withRole(all, "AXSlider");
  ASSERT_FALSE(sliders.empty());
  EXPECT_EQ(sliders[0].value, "50");  // a number's shortest form, not "50.000000"
  auto fields = withRole(all, "AXTextField");
  ASSERT_FALSE(fields.empty());
  auto checkBoxes = withRole(all, "AXCheckBox", "checkbutton");
  ASSERT_FALSE(checkBoxes.empty());
  for (const Found& box : checkBoxes) EXPECT_TRUE(box.value == "0" || box.value == "1" || box.value == "2");

  // Pressing a check box toggles it; a disabled one refuses.
  std::optional<std::vector<size_t>> toggled;
  for (const Found& box : checkBoxes) {
    if (box.value != "0") continue;
    int code = box.element->press();
    EXPECT_TRUE(code == 0 || code == kAtspiFailure) << code;
    if (code != 0) continue;
    toggled = box.path;
    break;
  }
  ASSERT_TRUE(toggled) << "no check box could be pressed";
  EXPECT_TRUE(testing::waitUntil([&] { return resolve(accessibility_, pid, *toggled)->value() == "1"; }, 10s));
  EXPECT_EQ(resolve(accessibility_, pid, *toggled)->press(), 0);
  EXPECT_TRUE(testing::waitUntil([&] { return resolve(accessibility_, pid, *toggled)->value() == "0"; }, 10s));

  // A text field takes focus and text; the tree reads the text back.
  std::optional<std::vector<size_t>> filled;
  for (const Found& field : fields) {
    if (field.element->setValue("Zorvane was here") != 0) continue;
    filled = field.path;
    EXPECT_EQ(field.element->setFocused(true), 0);
    break;
  }
  ASSERT_TRUE(filled);
  EXPECT_TRUE(testing::waitUntil(
      [&] { return resolve(accessibility_, pid, *filled)->value() == "Zorvane was here"; }, 10s));

  // A slider takes numbers only; a button and a label take no value; a label has no
  // action; a window can't be raised from here.
  EXPECT_EQ(sliders[0].element->setValue("lots"), kAtspiIllegalArgument);
  EXPECT_EQ(sliders[0].element->setValue("75"), 0);
  EXPECT_TRUE(testing::waitUntil([&] { return resolve(accessibility_, pid, sliders[0].path)->value() == "75"; }, 10s));
  EXPECT_EQ(withRole(all, "AXButton", "Close")[0].element->setValue("x"), kAtspiNotSettable);
  EXPECT_EQ(withRole(all, "AXStaticText", "label")[0].element->press(), kAtspiNoAction);
  EXPECT_EQ(window->raise(), kAtspiNoAction);

  // The element under a button's centre is that button.
  auto fontButton = withRole(all, "AXButton", "Sans Regular");
  ASSERT_FALSE(fontButton.empty());
  auto frame = fontButton[0].element->frame();
  ASSERT_TRUE(frame);
  auto hit = accessibility_.elementAt(pid, centreOf(*frame));
  ASSERT_TRUE(hit);
  EXPECT_EQ(hit->role(), "AXButton");
  EXPECT_EQ(hit->title(), "Sans Regular");
  EXPECT_EQ(hit->frame(), frame);
  EXPECT_EQ(accessibility_.elementAt(pid, {-500, -500}), nullptr);
}

// Elements of an application that stops answering, then goes away, fail with codes and
// empty reads instead of hanging or crashing.
TEST_F(AtspiAccessibilityTest, ElementsOfAGoneApplicationFailCleanly) {
  pid_t pid = app_->pid();
  auto window = mainWindow(accessibility_, pid);
  std::vector<Found> all;
  collect(*window, {}, all);
  auto buttons = withRole(all, "AXButton", "Sans Regular");
  ASSERT_FALSE(buttons.empty());

  ::kill(pid, SIGSTOP);
  EXPECT_EQ(buttons[0].element->press(), kAtspiCannotComplete);
  // Taken as not answering now: the next calls fail at once.
  EXPECT_FALSE(window->children().has_value());
  EXPECT_TRUE(accessibility_.windows(pid).empty());
  ::kill(pid, SIGCONT);

  app_->stop();
  EXPECT_EQ(buttons[0].element->frame(), std::nullopt);
  EXPECT_EQ(buttons[0].element->title(), "");
  EXPECT_NE(buttons[0].element->press(), 0);
  EXPECT_TRUE(accessibility_.windows(pid).empty());
}

// A Qt window (which calls itself a plain widget) is a window, and its check box and line
// edit are driven: the application itself reports the changes.
TEST(AtspiAccessibility, DrivesAQtWindow) {
  if (!std::getenv("DISPLAY")) GTEST_SKIP() << "no display; run under scripts/headless-desktop.sh";
  if (testing::qtWidgetAppPath().empty()) GTEST_SKIP() << "the Qt test app was not built (no Qt Widgets)";
  AtspiAccessibility accessibility;
  ASSERT_TRUE(accessibility.trusted());
  auto app = DesktopApp::start({testing::qtWidgetAppPath()});
  ASSERT_TRUE(app);
  ASSERT_TRUE(app->waitForLine("window ", 20s));
  ASSERT_TRUE(testing::waitUntil([&] { return mainWindow(accessibility, app->pid()) != nullptr; }, 20s));
  auto window = mainWindow(accessibility, app->pid());
  EXPECT_EQ(window->role(), "AXWindow");
  std::vector<Found> all;
  collect(*window, {}, all);

  auto checkBoxes = withRole(all, "AXCheckBox");
  ASSERT_EQ(checkBoxes.size(), 1u);
  EXPECT_EQ(checkBoxes[0].value, "0");
  size_t mark = app->lineCount();
  EXPECT_EQ(checkBoxes[0].element->press(), 0);
  EXPECT_TRUE(app->waitForLine("checked 1", 10s, mark));
  EXPECT_TRUE(testing::waitUntil([&] { return resolve(accessibility, app->pid(), checkBoxes[0].path)->value() == "1"; }, 10s));

  auto fields = withRole(all, "AXTextField");
  ASSERT_EQ(fields.size(), 1u);
  EXPECT_EQ(fields[0].element->setValue("typed by AT-SPI"), 0);
  EXPECT_TRUE(app->waitForLine("text typed by AT-SPI", 10s, mark));
  EXPECT_EQ(fields[0].element->value(), "typed by AT-SPI");

  auto send = withRole(all, "AXButton", "Send");
  ASSERT_EQ(send.size(), 1u);
  auto frame = send[0].element->frame();
  ASSERT_TRUE(frame);
  auto hit = accessibility.elementAt(app->pid(), centreOf(*frame));
  ASSERT_TRUE(hit);
  EXPECT_EQ(hit->title(), "Send");
}

}  // namespace
}  // namespace zorvane
