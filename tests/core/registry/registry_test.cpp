#include "core/registry/registry.h"

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <thread>

namespace zorvane {
namespace {

Target notesWindow(std::string title, uint32_t windowID = 41) {
  return Target::window(300, windowID, "org.gnome.TextEditor", "Text Editor", std::move(title));
}

Target folder(const std::string& path) { return Target::folder(URL::fileURL(path)); }

// A drop on a target that already has a live piece gets that piece, unchanged; the key
// decides, so a window whose title changed in between is still the same piece.
TEST(Registry, BondReturnsTheLivePieceWithTheSameKey) {
  Registry registry;
  auto first = registry.bond(notesWindow("Shopping"));
  EXPECT_TRUE(first.isNew);
  EXPECT_EQ(first.entry.status, Registry::Status::live);
  EXPECT_FALSE(first.entry.hasRun);
  EXPECT_TRUE(first.entry.summary.empty());
  EXPECT_TRUE(first.entry.tentacles.empty());
  EXPECT_NE(first.entry.pieceID, first.entry.sessionID);

  auto again = registry.bond(notesWindow("Shopping list (edited)"));
  EXPECT_FALSE(again.isNew);
  EXPECT_EQ(again.entry, first.entry) << "the second bond must neither make nor change an entry";
  EXPECT_EQ(registry.entry(first.entry.pieceID)->target, notesWindow("Shopping"));

  auto other = registry.bond(notesWindow("Shopping", 42));
  EXPECT_TRUE(other.isNew) << "another window number is another target";
  EXPECT_NE(other.entry.pieceID, first.entry.pieceID);
  EXPECT_NE(other.entry.sessionID, first.entry.sessionID);
  EXPECT_EQ(registry.live().size(), 2u);
}

// Parked entries stay until the next bond that makes a new entry, whatever its target;
// a bond that finds a live piece keeps them.
TEST(Registry, ParkedEntriesGoAtTheNextNewBond) {
  Registry registry;
  auto report = registry.bond(folder("/home/u/report")).entry;
  auto photos = registry.bond(folder("/home/u/photos")).entry;
  registry.park(report.pieceID);
  EXPECT_EQ(registry.entry(report.pieceID)->status, Registry::Status::parked);
  ASSERT_EQ(registry.live().size(), 1u);
  EXPECT_EQ(registry.live()[0].pieceID, photos.pieceID);

  EXPECT_FALSE(registry.bond(folder("/home/u/photos")).isNew);
  EXPECT_TRUE(registry.entry(report.pieceID)) << "a bond that finds a live piece drops nothing";

  auto reborn = registry.bond(folder("/home/u/report"));
  EXPECT_TRUE(reborn.isNew) << "a parked piece never comes back";
  EXPECT_NE(reborn.entry.pieceID, report.pieceID);
  EXPECT_NE(reborn.entry.sessionID, report.sessionID);
  EXPECT_FALSE(registry.entry(report.pieceID));

  registry.park(photos.pieceID);
  EXPECT_TRUE(registry.bond(folder("/home/u/music")).isNew);
  EXPECT_FALSE(registry.entry(photos.pieceID)) << "parked entries of any target go";
}

// The changing operations reach one entry, never its identity; unknown ids do nothing.
TEST(Registry, ChangesKeepIdentityAndIgnoreUnknownIDs) {
  Registry registry;
  auto entry = registry.bond(folder("/home/u/a")).entry;
  registry.markRan(entry.pieceID);
  registry.rename(entry.pieceID, folder("/home/u/b"));
  registry.update(entry.pieceID, [](Registry::Entry& e) {
    e.summary = "Tidied the folder";
    e.pieceID = UUID();
    e.sessionID = UUID();
  });
  auto changed = registry.entry(entry.pieceID);
  ASSERT_TRUE(changed);
  EXPECT_TRUE(changed->hasRun);
  EXPECT_EQ(changed->target, folder("/home/u/b"));
  EXPECT_EQ(changed->summary, "Tidied the folder");
  EXPECT_EQ(changed->pieceID, entry.pieceID);
  EXPECT_EQ(changed->sessionID, entry.sessionID);
  EXPECT_FALSE(registry.bond(folder("/home/u/b")).isNew) << "the renamed target is the piece's key now";

  registry.park(entry.pieceID);
  registry.update(entry.pieceID, [](Registry::Entry& e) { e.status = Registry::Status::live; });
  EXPECT_EQ(registry.entry(entry.pieceID)->status, Registry::Status::parked);

  UUID unknown;
  bool called = false;
  registry.update(unknown, [&](Registry::Entry&) { called = true; });
  registry.park(unknown);
  registry.markRan(unknown);
  registry.rename(unknown, folder("/x"));
  registry.addTentacle(unknown, folder("/x"));
  EXPECT_FALSE(called);
  EXPECT_FALSE(registry.entry(unknown));
  EXPECT_TRUE(registry.live().empty());
}

// A tentacle equal in every field to one already there is not added twice; a target that
// differs only in its title is another tentacle.
TEST(Registry, AddTentacleSkipsEqualTargets) {
  Registry registry;
  auto piece = registry.bond(folder("/home/u/a")).entry.pieceID;
  const std::vector<std::pair<Target, size_t>> steps = {
      {notesWindow("Draft"), 1},
      {notesWindow("Draft"), 1},
      {notesWindow("Draft v2"), 2},
      {Target::browserTab(BrowserApp::chromium, 5, *URL::parse("https://a.example/"), "A"), 3},
      {Target::browserTab(BrowserApp::chromium, 5, *URL::parse("https://a.example/"), "A"), 3},
  };
  for (const auto& [target, count] : steps) {
    SCOPED_TRACE(target.targetKey());
    registry.addTentacle(piece, target);
    auto tentacles = registry.entry(piece)->tentacles;
    ASSERT_EQ(tentacles.size(), count);
    EXPECT_EQ(tentacles.back(), target) << "tentacles keep the order they came in";
  }
}

// Bonds from many threads at once on one target make exactly one piece.
TEST(Registry, ConcurrentBondsMakeOnePiece) {
  Registry registry;
  std::atomic<int> made{0};
  std::vector<std::set<UUID>> seen(4);
  std::vector<std::thread> threads;
  for (size_t t = 0; t < seen.size(); ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 2000; ++i) {
        auto bonded = registry.bond(folder("/home/u/shared"));
        if (bonded.isNew) ++made;
        seen[t].insert(bonded.entry.pieceID);
        registry.markRan(bonded.entry.pieceID);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(made.load(), 1);
  std::set<UUID> all;
  for (const auto& ids : seen) all.insert(ids.begin(), ids.end());
  EXPECT_EQ(all.size(), 1u);
  EXPECT_EQ(registry.live().size(), 1u);
}

}  // namespace
}  // namespace zorvane
