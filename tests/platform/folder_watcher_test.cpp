#include "platform/linux/inotify_folder_watcher.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "core/base/run_loop.h"
#include "support/test_support.h"

namespace zorvane {
namespace {

namespace fs = std::filesystem;
using testing::TempDir;

// A watcher whose events land in `events`, "added <path>" / "added folder <path>" /
// "gone <path>".
struct Watching {
  RunLoop loop;
  std::unique_ptr<InotifyFolderWatcher> watcher;
  std::vector<std::string> events;

  explicit Watching(double retrySeconds = 2.0) {
    auto made = InotifyFolderWatcher::create(loop, {retrySeconds});
    EXPECT_TRUE(made) << made.error();
    if (!made) return;
    watcher = std::move(*made);
    watcher->onEvent = [this](const FolderEvent& event) {
      if (event.kind == FolderEvent::Kind::gone) return events.push_back("gone " + event.path);
      EXPECT_EQ(event.path, event.folder + "/" + event.name);
      events.push_back(std::string(event.isFolder ? "added folder " : "added ") + event.path);
    };
  }
  bool seen(const std::string& event) const { return std::count(events.begin(), events.end(), event) > 0; }
  bool waitFor(const std::string& event) {
    return loop.runUntil([&] { return seen(event); }, 10.0);
  }
};

// New names are reported once, whether made, moved in or renamed in the folder; what
// was there first is not; a folder watched twice stays watched until the second
// unwatch; bad paths fail with a reason.
TEST(InotifyFolderWatcher, ReportsNewEntriesOnceAndCountsWatches) {
  TempDir dir, elsewhere;
  dir.write("old.txt", "before");
  Watching watching;
  ASSERT_TRUE(watching.watcher);
  ASSERT_TRUE(watching.watcher->watch(dir.path()));
  ASSERT_TRUE(watching.watcher->watch(dir.path() + "/"));

  dir.write("a.txt", "a");
  fs::create_directory(dir.file("sub"));
  fs::rename(elsewhere.write("report.pdf", "pdf"), dir.file("report.pdf"));
  fs::rename(dir.file("a.txt"), dir.file("b.txt"));
  dir.write("sub/deeper.txt", "not one level");
  ASSERT_TRUE(watching.waitFor("added " + dir.file("b.txt")));
  EXPECT_EQ(watching.events, (std::vector<std::string>{"added " + dir.file("a.txt"), "added folder " + dir.file("sub"),
                                                       "added " + dir.file("report.pdf"), "added " + dir.file("b.txt")}));

  // A name that goes and comes back is new again.
  fs::remove(dir.file("b.txt"));
  dir.write("b.txt", "again");
  watching.events.clear();
  ASSERT_TRUE(watching.waitFor("added " + dir.file("b.txt")));

  watching.watcher->unwatch(dir.path());
  dir.write("c.txt", "still watched");
  ASSERT_TRUE(watching.waitFor("added " + dir.file("c.txt")));
  watching.watcher->unwatch(dir.path());
  dir.write("d.txt", "not watched");
  // Events of one watcher come in order: once e.txt is in, d.txt would have been too.
  ASSERT_TRUE(watching.watcher->watch(elsewhere.path()));
  elsewhere.write("e.txt", "e");
  ASSERT_TRUE(watching.waitFor("added " + elsewhere.file("e.txt")));
  EXPECT_FALSE(watching.seen("added " + dir.file("d.txt")));

  auto relative = watching.watcher->watch("relative/folder");
  ASSERT_FALSE(relative);
  EXPECT_EQ(relative.error(), "folder \"relative/folder\": not an absolute path");
  auto file = watching.watcher->watch(dir.file("c.txt"));
  ASSERT_FALSE(file);
  EXPECT_EQ(file.error(), "folder " + dir.file("c.txt") + ": not a folder");
}

// Events the kernel lost (a full queue) are made up for by listing the folder again.
TEST(InotifyFolderWatcher, RescansWhenEventsAreLost) {
  TempDir dir;
  Watching watching;
  ASSERT_TRUE(watching.watcher);
  ASSERT_TRUE(watching.watcher->watch(dir.path()));
  watching.watcher->loseNextEventsForTesting();
  dir.write("lost.txt", "its event is thrown away");
  ASSERT_TRUE(watching.waitFor("added " + dir.file("lost.txt")));
  dir.write("next.txt", "normal again");
  ASSERT_TRUE(watching.waitFor("added " + dir.file("next.txt")));
  EXPECT_EQ(watching.events.size(), 2u) << ::testing::PrintToString(watching.events);
}

// A watched folder that is deleted is reported gone and watched again when it comes
// back; one that isn't there yet is watched from when it appears; a watcher destroyed
// with events on the way calls nothing.
TEST(InotifyFolderWatcher, FollowsFoldersThatGoAndCome) {
  TempDir dir;
  Watching watching(0.05);
  ASSERT_TRUE(watching.watcher);
  fs::create_directory(dir.file("inbox"));
  ASSERT_TRUE(watching.watcher->watch(dir.file("inbox")));
  ASSERT_TRUE(watching.watcher->watch(dir.file("later")));

  fs::remove_all(dir.file("inbox"));
  ASSERT_TRUE(watching.waitFor("gone " + dir.file("inbox")));
  fs::create_directory(dir.file("inbox"));
  dir.write("inbox/back.txt", "b");
  ASSERT_TRUE(watching.waitFor("added " + dir.file("inbox/back.txt")));
  dir.write("inbox/after.txt", "a");
  ASSERT_TRUE(watching.waitFor("added " + dir.file("inbox/after.txt")));

  fs::create_directory(dir.file("later"));
  dir.write("later/first.txt", "f");
  ASSERT_TRUE(watching.waitFor("added " + dir.file("later/first.txt")));
  EXPECT_EQ(std::count(watching.events.begin(), watching.events.end(), "added " + dir.file("inbox/back.txt")), 1);

  watching.events.clear();
  dir.write("inbox/unseen.txt", "u");
  watching.watcher.reset();
  watching.loop.runUntilIdle();
  EXPECT_TRUE(watching.events.empty());
}

}  // namespace
}  // namespace zorvane
