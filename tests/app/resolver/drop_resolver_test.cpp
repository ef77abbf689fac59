#include "app/resolver/drop_resolver.h"

#include <gtest/gtest.h>

#include "platform/fake/fake_desktop.h"
#include "support/test_support.h"

namespace zorvane {
namespace {

constexpr int32_t kOwnPID = 1;
constexpr int32_t kFiles = 50;    // a file manager (Thunar)
constexpr int32_t kBrowser = 60;  // Chromium
constexpr int32_t kEditor = 70;   // an ordinary application
constexpr int32_t kVault = 80;    // a password manager

// A desktop with a file-manager window showing a real folder, a browser and an editor,
// front to back in that order where they overlap.
class DropResolverTest : public ::testing::Test {
 protected:
  FakeDesktop desktop;
  testing::TempDir folder;
  std::string filePath = folder.write("notes.txt", "x");
  std::shared_ptr<FakeElement> filesWindow = FakeElement::make("AXWindow", "data - Thunar", Rect{0, 0, 400, 300});
  std::shared_ptr<FakeElement> row, icon;
  DropResolver resolver{desktop.services, kOwnPID};

  void SetUp() override {
    desktop.windows.applications = {{kFiles, {"org.xfce.Thunar", "Thunar"}},
                                    {kBrowser, {"org.chromium.Chromium", "Chromium"}},
                                    {kEditor, {"org.example.Editor", "Editor"}},
                                    {kVault, {"com.bitwarden.desktop", "Bitwarden"}},
                                    {kOwnPID, {"zorvane", "Zorvane"}}};
    desktop.windows.windowList = {
        {1, kOwnPID, 0, 0, 1280, 40, 0, "piece", true},
        {10, kFiles, 0, 0, 400, 300, 0, "data - Thunar", true},
        {20, kBrowser, 300, 200, 400, 300, 0, "Page", true},
        {30, kEditor, 600, 400, 400, 300, 0, "notes", true},
    };
    filesWindow->folderPath = folder.path();
    auto table = filesWindow->add(FakeElement::make("AXTable", "", Rect{0, 50, 400, 250}));
    row = table->add(FakeElement::make("AXCell", "notes.txt", Rect{10, 60, 200, 26}));
    row->urlText = URL::fileURL(filePath).absoluteString();
    icon = row->add(FakeElement::make("AXCell", "", Rect{10, 60, 26, 26}));
    desktop.accessibility.windowsByPID[kFiles] = {filesWindow};
  }
};

// A point on a file's icon inside its row: the row carries the file URL (the walk goes
// up from the icon), the target is the file, and its anchor is the row in that window.
// Without a frame the anchor is a 64x64 square at the point.
TEST_F(DropResolverTest, FileManagerItemBecomesFileWithElementAnchor) {
  auto resolved = resolver.resolve({15, 65});
  ASSERT_TRUE(resolved);
  EXPECT_EQ(resolved->target, Target::file(URL::fileURL(filePath)));
  EXPECT_EQ(resolved->anchor->kindName(), "ElementAnchor");
  EXPECT_EQ(resolved->anchor->frame(), (Rect{10, 60, 200, 26}));
  EXPECT_EQ(resolved->anchor->windowID(), 10u);
  EXPECT_TRUE(resolved->anchor->isIcon());
  EXPECT_TRUE(resolved->anchor->isOnScreen());

  // A directory item is a folder target.
  row->urlText = URL::fileURL(folder.path(), true).absoluteString();
  EXPECT_EQ(resolver.resolve({15, 65})->target, Target::folder(URL::fileURL(folder.path(), true)));

  // The element that carries the URL has no frame.
  row->urlText = URL::fileURL(filePath).absoluteString();
  row->frameRect.reset();
  desktop.accessibility.elementAtAnswer = icon;
  auto noFrame = resolver.resolve({15, 65});
  ASSERT_TRUE(noFrame);
  EXPECT_EQ(noFrame->anchor->frame(), (Rect{15, 65, 64, 64}));
}

// A point on a file-manager window with no item under it is the folder it shows; a
// window that can't tell its folder is an app window of the file manager.
TEST_F(DropResolverTest, FileManagerWindowBecomesItsFolder) {
  auto resolved = resolver.resolve({200, 250});
  ASSERT_TRUE(resolved);
  EXPECT_EQ(resolved->target, Target::folder(URL::fileURL(folder.path(), true)));
  EXPECT_EQ(resolved->anchor->kindName(), "WindowAnchor");
  EXPECT_EQ(resolved->anchor->frame(), (Rect{0, 0, 400, 300}));
  EXPECT_FALSE(resolved->anchor->isIcon());

  filesWindow->folderPath.reset();
  EXPECT_EQ(resolver.resolve({200, 250})->target, Target::window(kFiles, 10, "org.xfce.Thunar", "Thunar", "data - Thunar"));
}

// The browser's front tab: URL and title; a missing title line is an empty title; a
// browser that can't be scripted, or answers no URL, gives its window.
TEST_F(DropResolverTest, BrowserWindowBecomesItsFrontTab) {
  desktop.browsers.frontTabAnswer = "http://127.0.0.1:8000/a#x\nHello";
  auto resolved = resolver.resolve({500, 350});
  ASSERT_TRUE(resolved);
  EXPECT_EQ(resolved->target, Target::browserTab(BrowserApp::chromium, 20, *URL::parse("http://127.0.0.1:8000/a#x"), "Hello"));
  EXPECT_EQ(resolved->anchor->windowID(), 20u);

  desktop.browsers.frontTabAnswer = "http://127.0.0.1:8000/b";
  EXPECT_EQ(resolver.resolve({500, 350})->target,
            Target::browserTab(BrowserApp::chromium, 20, *URL::parse("http://127.0.0.1:8000/b"), ""));

  for (std::optional<std::string> answer : {std::optional<std::string>(), std::optional<std::string>("\nTitle")}) {
    desktop.browsers.frontTabAnswer = answer;
    EXPECT_EQ(resolver.resolve({500, 350})->target,
              Target::window(kBrowser, 20, "org.chromium.Chromium", "Chromium", "Page"));
  }
}

// Front to back: a covered point belongs to the front window; our own window is passed
// through; a denied front window gives nothing even over an allowed one, and nothing of
// it is read; a point on no window and no desktop gives nothing.
TEST_F(DropResolverTest, FrontWindowDecidesAndDeniedOnesGiveNothing) {
  desktop.browsers.frontTabAnswer = "http://h/\nT";
  EXPECT_EQ(resolver.resolve({350, 250})->target.kind(), Target::Kind::folder);
  EXPECT_EQ(resolver.resolve({650, 450})->target.kind(), Target::Kind::browserTab);
  EXPECT_EQ(resolver.resolve({900, 600})->target, Target::window(kEditor, 30, "org.example.Editor", "Editor", "notes"));
  // Own window at the top of the screen: the file manager below it answers.
  EXPECT_EQ(resolver.resolve({200, 20})->target.kind(), Target::Kind::folder);

  auto vaultWindow = FakeElement::make("AXWindow", "Vault", Rect{250, 150, 500, 400});
  vaultWindow->urlText = URL::fileURL(filePath).absoluteString();
  desktop.accessibility.windowsByPID[kVault] = {vaultWindow};
  desktop.windows.windowList.insert(desktop.windows.windowList.begin() + 1, {40, kVault, 250, 150, 500, 400, 0, "Vault", true});
  int calls = desktop.accessibility.elementAtCalls;
  EXPECT_FALSE(resolver.resolve({500, 350}));
  EXPECT_EQ(vaultWindow->frameReads, 0) << "the denied application's tree was read";
  EXPECT_EQ(desktop.accessibility.elementAtCalls, calls);
  desktop.windows.applications[kVault].bundleID = "com.example.MyBank";
  EXPECT_FALSE(resolver.resolve({500, 350}));

  EXPECT_FALSE(resolver.resolve({1200, 780}));
  EXPECT_FALSE(resolver.resolve({-5000, -5000}));
}

// A window whose application has no bundle identifier is named by its executable; with
// neither, "unknown". A window that vanished between the list and the hit test gives
// a window target all the same, which its anchor then retires.
TEST_F(DropResolverTest, WindowsWithoutIdentity) {
  desktop.windows.applications[kEditor] = {"", "editor-bin"};
  EXPECT_EQ(resolver.resolve({900, 600})->target, Target::window(kEditor, 30, "editor-bin", "editor-bin", "notes"));
  desktop.windows.applications.erase(kEditor);
  auto resolved = resolver.resolve({900, 600});
  EXPECT_EQ(resolved->target, Target::window(kEditor, 30, "unknown", "unknown", "notes"));
  desktop.windows.windowList.pop_back();
  EXPECT_FALSE(resolved->anchor->tick());
}

// Desktop icons belong to the file manager's desktop window: an icon gives its file
// with no window; empty desktop gives nothing; a desktop window of another program is
// not asked.
TEST_F(DropResolverTest, DesktopIcons) {
  constexpr int32_t kDesk = 90;
  desktop.windows.applications[kDesk] = {"pcmanfm", "PCManFM"};
  desktop.windows.windowList.push_back({99, kDesk, 0, 0, 1280, 800, -1000, "pcmanfm", true});
  auto deskWindow = FakeElement::make("AXWindow", "Desktop", Rect{0, 0, 1280, 800});
  auto iconElement = deskWindow->add(FakeElement::make("AXUnknown", "notes.txt", Rect{1100, 600, 80, 80}));
  iconElement->urlText = URL::fileURL(filePath).absoluteString();
  desktop.accessibility.windowsByPID[kDesk] = {deskWindow};

  auto resolved = resolver.resolve({1120, 620});
  ASSERT_TRUE(resolved);
  EXPECT_EQ(resolved->target, Target::file(URL::fileURL(filePath)));
  EXPECT_EQ(resolved->anchor->windowID(), std::nullopt);
  EXPECT_EQ(resolved->anchor->frame(), (Rect{1100, 600, 80, 80}));
  EXPECT_FALSE(resolver.resolve({1250, 100}));

  desktop.windows.applications[kDesk] = {"org.example.Wallpaper", "Wallpaper"};
  EXPECT_FALSE(resolver.resolve({1120, 620}));
}

// Anchors follow what they stand for: a window's frame and visibility, an element's
// frame (width 0 or none: hidden, the frame kept), and end with their window.
TEST_F(DropResolverTest, AnchorsTick) {
  WindowAnchor window(desktop.windows, 30, {}, true);
  desktop.windows.windowList[3] = {30, kEditor, 10, 20, 300, 200, 0, "notes", false};
  EXPECT_TRUE(window.tick());
  EXPECT_EQ(window.frame(), (Rect{10, 20, 300, 200}));
  EXPECT_FALSE(window.isOnScreen());
  EXPECT_FALSE(WindowAnchor(desktop.windows, std::nullopt, {}, true).tick());

  ElementAnchor element(desktop.windows, row, 10, {}, true);
  EXPECT_TRUE(element.tick());
  EXPECT_EQ(element.frame(), (Rect{10, 60, 200, 26}));
  EXPECT_TRUE(element.isOnScreen());
  row->frameRect = Rect{10, 60, 0, 26};
  EXPECT_TRUE(element.tick());
  EXPECT_FALSE(element.isOnScreen());
  row->frameRect.reset();
  EXPECT_TRUE(element.tick());
  EXPECT_EQ(element.frame(), (Rect{10, 60, 0, 26}));
  EXPECT_FALSE(element.isOnScreen());
  row->frameRect = Rect{10, 60, 200, 26};
  desktop.windows.windowList[1].onScreen = false;
  EXPECT_TRUE(element.tick());
  EXPECT_FALSE(element.isOnScreen()) << "hidden with its window";
  desktop.windows.windowList.erase(desktop.windows.windowList.begin() + 1);
  EXPECT_FALSE(element.tick());

  ElementAnchor onDesktop(desktop.windows, row, std::nullopt, {}, true);
  row->frameRect.reset();
  EXPECT_TRUE(onDesktop.tick());
  HiddenAnchor hidden(Rect{1, 2, 3, 4});
  EXPECT_TRUE(hidden.tick());
  EXPECT_FALSE(hidden.isOnScreen());
  EXPECT_TRUE(hidden.isIcon());
}

}  // namespace
}  // namespace zorvane
