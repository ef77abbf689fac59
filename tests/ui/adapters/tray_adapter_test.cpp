#include "ui/adapters/tray_adapter.h"

#include <gtest/gtest.h>

#include <QPersistentModelIndex>

#include "support/card_fixtures.h"
#include "ui/ink_test_scenes.h"

namespace zorvane {
namespace {

using testing::TrayWorld;

TrayModel::LiveRow row(const std::string& name, Mood mood = Mood::idle, bool busy = false) {
  return {UUID(), name, mood, busy, "folder"};
}

// Counts a signal's emissions (the test target doesn't link Qt Test).
template <typename Sender, typename Signal>
std::shared_ptr<int> counter(Sender* sender, Signal signal) {
  auto count = std::make_shared<int>(0);
  QObject::connect(sender, signal, sender, [count] { ++*count; });
  return count;
}

QString role(TrayLiveRows* rows, int at, TrayLiveRows::Role which) {
  return rows->data(rows->index(at), which).toString();
}

#define SKIP_WITHOUT_DISPLAY()                                       \
  do {                                                               \
    std::string why;                                                 \
    if (!testing::ensureGuiApplication(why)) GTEST_SKIP() << why;    \
  } while (0)

// Each change of the tray's model reaches the properties; the live rows say which rows
// came, went, moved or changed, so the view keeps its rows (and their focus).
TEST(TrayAdapter, FollowsTheTraysModel) {
  SKIP_WITHOUT_DISPLAY();
  TrayWorld world;
  TrayAdapter adapter(world.tray);
  TrayLiveRows* rows = adapter.live();
  auto changed = counter(&adapter, &TrayAdapter::changed);
  auto inserted = counter(rows, &QAbstractItemModel::rowsInserted);
  auto removed = counter(rows, &QAbstractItemModel::rowsRemoved);
  auto moved = counter(rows, &QAbstractItemModel::rowsMoved);
  auto dataChanged = counter(rows, &QAbstractItemModel::dataChanged);
  auto reset = counter(rows, &QAbstractItemModel::modelReset);
  EXPECT_FALSE(adapter.hasContent());
  EXPECT_EQ(adapter.emptyText(), "Pull down, drop on anything");

  TrayModel& model = world.tray->model();
  TrayModel::LiveRow docs = row("Docs"), site = row("example.com"), build = row("build", Mood::working, true);
  model.live = {docs, site};
  model.notify();
  EXPECT_EQ(*changed, 1);
  EXPECT_TRUE(adapter.hasContent());
  EXPECT_TRUE(adapter.showsLive());
  EXPECT_FALSE(adapter.showsRestore());
  ASSERT_EQ(rows->rowCount(), 2);
  EXPECT_EQ(*inserted, 2);
  EXPECT_EQ(role(rows, 0, TrayLiveRows::PieceNameRole), "Docs");
  EXPECT_EQ(role(rows, 0, TrayLiveRows::DotRole), "green");
  EXPECT_EQ(role(rows, 0, TrayLiveRows::ImageRole), "folder");
  EXPECT_EQ(role(rows, 0, TrayLiveRows::CaptionRole), "");

  // The site waits for an approval and moves up; a busy piece joins at the end.
  QPersistentModelIndex docsRow(rows->index(0));
  site.mood = Mood::needsApproval;
  model.live = {site, docs, build};
  *inserted = 0;
  model.notify();
  ASSERT_EQ(rows->rowCount(), 3);
  EXPECT_EQ(*moved, 1);
  EXPECT_EQ(*inserted, 1);
  EXPECT_EQ(*dataChanged, 1) << "only the site's row changed";
  EXPECT_EQ(*reset, 0);
  EXPECT_EQ(docsRow.row(), 1) << "the view's row for Docs is still Docs'";
  EXPECT_EQ(role(rows, 0, TrayLiveRows::DotRole), "orange");
  EXPECT_EQ(role(rows, 0, TrayLiveRows::CaptionRole), "needs you");
  EXPECT_EQ(role(rows, 2, TrayLiveRows::DotRole), "blue");
  EXPECT_EQ(role(rows, 2, TrayLiveRows::CaptionRole), "working");

  model.live = {build};
  model.notify();
  EXPECT_EQ(*removed, 1) << "the two rows left go in one removal";
  ASSERT_EQ(rows->rowCount(), 1);
  EXPECT_EQ(role(rows, 0, TrayLiveRows::PieceNameRole), "build");
  EXPECT_EQ(*reset, 0);

  // The offer to restore, and a message.
  for (int i = 0; i < 6; ++i) {
    std::string name = "piece " + std::to_string(i);
    model.restore.push_back({Target::folder(URL::fileURL("/tmp/" + name, true)), UUID(), name, {}});
  }
  model.message = "2 pieces couldn't be found";
  model.restoring = true;
  model.notify();
  EXPECT_TRUE(adapter.showsRestore());
  EXPECT_EQ(adapter.restoreHeading(), "6 pieces open when Zorvane closed");
  EXPECT_EQ(adapter.restoreNames(), (QStringList{"piece 0", "piece 1", "piece 2", "piece 3"}));
  EXPECT_EQ(adapter.restoreMore(), "+ 2 more");
  EXPECT_TRUE(adapter.restoring());
  EXPECT_TRUE(adapter.showsMessage());
  EXPECT_EQ(adapter.message(), "2 pieces couldn't be found");

  model = TrayModel{.notchWidth = model.notchWidth, .onChange = model.onChange};
  model.notify();
  EXPECT_FALSE(adapter.hasContent());
  EXPECT_FALSE(adapter.showsRestore());
  EXPECT_EQ(adapter.restoreMore(), "");
  EXPECT_FALSE(adapter.showsMessage());
  EXPECT_EQ(rows->rowCount(), 0);
}

// A row's click focuses that row's piece; the offer's buttons reach the tray; the size
// the view asks for sizes the panel, which follows a later change at once.
TEST(TrayAdapter, ActionsAndSizeReachTheTray) {
  SKIP_WITHOUT_DISPLAY();
  TrayWorld world;
  std::vector<UUID> focused;
  int restores = 0, dismissals = 0;
  world.tray->onFocusPiece = [&](const UUID& id) { focused.push_back(id); };
  world.tray->onRestoreAll = [&] { ++restores; };
  world.tray->onDismissRestore = [&] { ++dismissals; };
  auto adapter = std::make_unique<TrayAdapter>(world.tray);

  TrayModel::LiveRow first = row("first"), second = row("second");
  world.tray->model().live = {first, second};
  world.tray->model().notify();
  adapter->focusPiece(1);
  adapter->focusPiece(2);
  adapter->focusPiece(-1);
  EXPECT_EQ(focused, std::vector<UUID>{second.id}) << "a row that isn't there focuses nothing";
  adapter->restoreAll();
  adapter->dismissRestore();
  EXPECT_EQ(restores, 1);
  EXPECT_EQ(dismissals, 1);

  ASSERT_TRUE(world.tray->fittingSize);
  EXPECT_EQ(world.tray->fittingSize(), std::nullopt) << "no size before the view measured";
  adapter->setContentSize(300.4, 151);
  EXPECT_EQ(world.tray->fittingSize(), (Size{301, 151}));
  world.tray->show();
  Rect band = world.notch->notchRect();
  EXPECT_EQ(world.panel->frame, (Rect{band.x + band.width / 2 - 150.5, band.maxY(), 301, 151}));
  adapter->setContentSize(320, 200);
  EXPECT_EQ(world.panel->frame, (Rect{band.x + band.width / 2 - 160, band.maxY(), 320, 200}));

  // Once the view is gone the tray measures nothing and its changes go nowhere.
  adapter.reset();
  EXPECT_EQ(world.tray->fittingSize(), std::nullopt);
  world.tray->model().notify();
}

}  // namespace
}  // namespace zorvane
