#include "app/resolver/restorer.h"

#include <gtest/gtest.h>

#include "platform/fake/fake_desktop.h"
#include "platform/fake/fake_file_manager.h"
#include "support/fake_time.h"
#include "support/test_support.h"

namespace zorvane {
namespace {

constexpr int32_t kFiles = 50;
constexpr int32_t kEditor = 70;

// A file manager (Thunar) that owns FileManager1, a real folder with a file, and an
// editor with two windows; the queue runs on a fake clock.
class RestorerTest : public ::testing::Test, public testing::FakeTime {
 protected:
  FakeDesktop desktop;
  FakeFileManager files{queue};
  Restorer restorer{desktop.services, files, queue, 1};
  testing::TempDir folder;
  std::string filePath = folder.write("sub/report.txt", "x");
  URL fileURL = URL::fileURL(filePath);
  Target fileTarget = Target::file(fileURL);

  std::vector<std::optional<Resolved>> answers;
  Restorer::Completion collect() {
    return [this](std::optional<Resolved> resolved) { answers.push_back(std::move(resolved)); };
  }

  void SetUp() override {
    desktop.windows.applications = {{kFiles, {"org.xfce.Thunar", "Thunar"}}, {kEditor, {"org.example.Editor", "Editor"}}};
    desktop.windows.windowList = {{21, kEditor, 0, 0, 500, 400, 0, "draft.md - Editor", true},
                                  {22, kEditor, 0, 0, 500, 400, 0, "notes.md - Editor", true}};
    files.currentOwner = FileManagerOwner{kFiles, &fileManagerApp(FileManagerKind::thunar)};
  }

  // A Thunar window showing `path` with one row for each name, at the front, placed at
  // `x` (its frame's left edge).
  std::shared_ptr<FakeElement> openFolder(uint32_t id, const std::string& path, std::vector<std::string> names,
                                          double x = 600) {
    std::string name = URL::fileURL(path).lastPathComponent();
    desktop.windows.windowList.insert(desktop.windows.windowList.begin(),
                                      {id, kFiles, x, 100, 400, 300, 0, name + " - Thunar", true});
    auto window = FakeElement::make("AXWindow", name + " - Thunar", Rect{x, 100, 400, 300});
    window->folderPath = path;
    auto table = window->add(FakeElement::make("AXTable", "", Rect{600, 150, 400, 250}));
    double y = 150;
    for (auto& item : names) {
      auto row = table->add(FakeElement::make("AXCell", "", Rect{600, y, 400, 26}));
      auto cell = row->add(FakeElement::make("AXCell", item, Rect{630, y, 200, 26}));
      cell->urlText = URL::fileURL(path + "/" + item).absoluteString();
      y += 26;
    }
    desktop.accessibility.windowsByPID[kFiles].push_back(window);
    return window;
  }
};

// A stored window is found by its number, then its exact title, then a title that shares
// a part with it, then the application's front window; windows 80 points wide don't
// count; an application that doesn't run gives nothing. A tab keeps its URL and title.
TEST_F(RestorerTest, WindowsAndTabsAreFoundByNumberThenTitle) {
  auto windowOf = [&](uint32_t id, const std::string& title) {
    std::optional<uint32_t> found;
    restorer.resolve(Target::window(9, id, "org.example.Editor", "Old", title), [&](std::optional<Resolved> r) {
      if (r) found = std::get<Target::Window>(r->target.payload()).windowID;
    });
    return found;
  };
  EXPECT_EQ(windowOf(22, "whatever"), 22u);
  EXPECT_EQ(windowOf(99, "notes.md - Editor"), 22u);
  EXPECT_EQ(windowOf(99, "notes.md"), 22u);
  EXPECT_EQ(windowOf(99, ""), 21u);
  EXPECT_EQ(windowOf(99, "unrelated"), 21u);
  desktop.windows.windowList[0].width = 80;
  EXPECT_EQ(windowOf(99, "draft.md - Editor"), 22u);
  desktop.windows.windowList[0].width = 81;
  EXPECT_EQ(windowOf(99, "draft.md - Editor"), 21u);

  std::optional<Resolved> fresh;
  restorer.resolve(Target::window(9, 99, "org.example.Editor", "Old", "notes.md - Editor"),
                   [&](std::optional<Resolved> r) { fresh = std::move(r); });
  ASSERT_TRUE(fresh);
  EXPECT_EQ(fresh->target, Target::window(kEditor, 22, "org.example.Editor", "Editor", "notes.md - Editor"));

  bool called = false;
  restorer.resolve(Target::window(9, 22, "org.example.Gone", "Gone", ""), [&](std::optional<Resolved> r) {
    called = true;
    EXPECT_FALSE(r);
  });
  EXPECT_TRUE(called);

  desktop.windows.applications[kEditor].bundleID = "org.chromium.Chromium";
  auto url = *URL::parse("https://example.org/a");
  restorer.resolve(Target::browserTab(BrowserApp::chromium, 5, url, "notes.md - Editor"),
                   [&](std::optional<Resolved> r) { fresh = std::move(r); });
  ASSERT_TRUE(fresh);
  EXPECT_EQ(fresh->target, Target::browserTab(BrowserApp::chromium, 22, url, "notes.md - Editor"));
  EXPECT_EQ(fresh->anchor->windowID(), 22u);
}

// A file already shown answers at once with its cell and window; a file that doesn't
// exist answers nothing at once and nothing is revealed.
TEST_F(RestorerTest, ShownFileAnswersAtOnceAndMissingOneWithNothing) {
  openFolder(31, folder.path() + "/sub", {"other.txt", "report.txt"});
  restorer.resolve(fileTarget, collect());
  ASSERT_EQ(answers.size(), 1u);
  ASSERT_TRUE(answers[0]);
  EXPECT_EQ(answers[0]->target, fileTarget);
  EXPECT_EQ(answers[0]->anchor->kindName(), "ElementAnchor");
  EXPECT_EQ(answers[0]->anchor->frame(), (Rect{630, 176, 200, 26}));
  EXPECT_EQ(answers[0]->anchor->windowID(), 31u);

  restorer.resolve(Target::file(URL::fileURL(folder.path() + "/gone.txt")), collect());
  ASSERT_EQ(answers.size(), 2u);
  EXPECT_FALSE(answers[1]);
  EXPECT_TRUE(files.revealed.empty());
}

// A file in a closed folder: the file manager is asked to show it; an attempt after the
// window opened finds the cell. One that never turns up ends after the sixth attempt on
// the file manager's front window, the target unchanged; the completion runs once.
TEST_F(RestorerTest, HiddenFileIsRevealedAndRetried) {
  files.holdReveals = true;
  restorer.resolve(fileTarget, collect());
  ASSERT_EQ(files.revealed, std::vector<URL>{fileURL});
  pass(2);
  EXPECT_TRUE(answers.empty()) << "attempts start once the file manager answered";
  files.answerHeldReveals();
  queue.runUntilIdle();
  pass(0.7);
  EXPECT_TRUE(answers.empty());
  openFolder(32, folder.path() + "/sub", {"report.txt"});
  pass(0.4);
  ASSERT_EQ(answers.size(), 1u);
  ASSERT_TRUE(answers[0]);
  EXPECT_EQ(answers[0]->anchor->windowID(), 32u);

  // The window shows another folder: the icon never turns up.
  answers.clear();
  files.holdReveals = false;
  files.revealFailure = "file manager: ShowItems got no answer within 5000 ms";
  auto elsewhere = folder.write("elsewhere/report.txt", "y");
  restorer.resolve(Target::file(URL::fileURL(elsewhere)), collect());
  queue.runUntilIdle();
  pass(0.35 * 5 + 0.1);
  EXPECT_TRUE(answers.empty());
  pass(0.5);
  ASSERT_EQ(answers.size(), 1u);
  ASSERT_TRUE(answers[0]);
  EXPECT_EQ(answers[0]->target, Target::file(URL::fileURL(elsewhere)));
  EXPECT_EQ(answers[0]->anchor->kindName(), "WindowAnchor");
  EXPECT_EQ(answers[0]->anchor->windowID(), 32u);
  pass(3);
  EXPECT_EQ(answers.size(), 1u);

  // No file manager at all: still revealed, and nothing after the attempts.
  answers.clear();
  files.currentOwner.reset();
  desktop.windows.windowList.erase(desktop.windows.windowList.begin());
  restorer.resolve(fileTarget, collect());
  pass(3);
  ASSERT_EQ(answers.size(), 1u);
  EXPECT_FALSE(answers[0]);
}

// Two windows titled alike, one showing another folder of the same name: the folder each
// shows decides.
TEST_F(RestorerTest, FolderWindowIsTheOneShowingTheFolder) {
  auto sameName = folder.path() + "/other/sub";
  std::filesystem::create_directories(sameName);
  openFolder(41, folder.path() + "/sub", {}, 100);
  openFolder(42, sameName, {}, 600);
  restorer.resolve(Target::folder(URL::fileURL(folder.path() + "/sub", true)), collect());
  ASSERT_EQ(answers.size(), 1u);
  ASSERT_TRUE(answers[0]);
  EXPECT_EQ(answers[0]->target, Target::folder(URL::fileURL(folder.path() + "/sub", true)));
  EXPECT_EQ(answers[0]->anchor->windowID(), 41u);
}

// The walk is bounded: no deeper than the file manager's depth and no more than 4000
// elements in all, whatever their depth.
TEST_F(RestorerTest, IconWalkIsBounded) {
  auto window = openFolder(51, folder.path() + "/sub", {});
  auto cell = FakeElement::make("AXCell", "report.txt", Rect{600, 200, 100, 20});
  cell->urlText = fileURL.absoluteString();
  // Depth: the window is 1; the cell at 14 is out of reach for Thunar, in reach for a
  // GTK 4 file manager.
  auto parent = window;
  for (int depth = 2; depth < 14; ++depth) parent = parent->add(FakeElement::make("AXGroup", "", Rect{600, 100, 400, 300}));
  parent->add(cell);
  EXPECT_FALSE(restorer.findIcon(fileURL, fileTarget));
  files.currentOwner->app = &fileManagerApp(FileManagerKind::nautilus);
  EXPECT_TRUE(restorer.findIcon(fileURL, fileTarget));

  // 3998 elements before the cell: the application, the window, its table and 3994
  // more; the cell would be the 4000th.
  auto wide = openFolder(52, folder.path() + "/sub", {});
  desktop.accessibility.windowsByPID[kFiles] = {wide};
  auto table = wide->kids[0];
  for (int i = 0; i < 3996; ++i) table->add(FakeElement::make("AXCell", "x", Rect{0, 0, 1, 1}));
  table->add(cell);
  EXPECT_FALSE(restorer.findIcon(fileURL, fileTarget));
  table->kids.erase(table->kids.begin());
  EXPECT_TRUE(restorer.findIcon(fileURL, fileTarget));
}

}  // namespace
}  // namespace zorvane
