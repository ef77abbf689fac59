#include "app/notch/tray_controller.h"

#include <gtest/gtest.h>

#include "support/card_fixtures.h"

namespace zorvane {
namespace {

using testing::TrayWorld;

// A pointer passing over the goo shows nothing; resting there shows the tray under the
// band; the tray stays while the pointer is over it and goes a moment after it left,
// unless pinned.
TEST(TrayController, ShowsOnARestingPointerAndHidesAfterItLeaves) {
  TrayWorld world;
  world.surfaces.pointerAt = world.overNotch();
  world.pass(0.2);
  world.surfaces.pointerAt = TrayWorld::kAway;
  world.pass(1);
  EXPECT_FALSE(world.panel->visible) << "a pointer passing in less than 0.3 s shows nothing";

  int refreshes = 0;
  world.tray->refresh = [&] { ++refreshes; };
  world.surfaces.pointerAt = world.overNotch();
  world.pass(0.5);
  ASSERT_TRUE(world.panel->visible);
  EXPECT_GT(refreshes, 0) << "the model is filled before it shows";
  world.pass(0.3);
  EXPECT_TRUE(world.tray->motion().isOpen());
  Rect band = world.notch->notchRect();
  EXPECT_EQ(world.panel->frame, (Rect{band.x + band.width / 2 - 190, band.maxY(), 380, 120}));

  // The view measures its content: the panel follows, still centred under the band.
  world.tray->fittingSize = [] { return std::optional<Size>(Size{300, 0}); };
  world.pass(0.1);
  EXPECT_EQ(world.panel->frame, (Rect{band.x + band.width / 2 - 150, band.maxY(), 300, 120}));

  // Down from the band into the panel and around in it: it stays.
  world.surfaces.pointerAt = {band.x + band.width / 2, band.maxY() + 80};
  world.pass(2);
  EXPECT_TRUE(world.panel->visible);
  world.surfaces.pointerAt = {band.x + band.width / 2 + 153, band.maxY() + 60};
  world.pass(1);
  EXPECT_TRUE(world.panel->visible) << "6 points round the panel still count as on it";

  world.surfaces.pointerAt = TrayWorld::kAway;
  world.pass(0.35);
  EXPECT_TRUE(world.tray->motion().isOpen()) << "leaving hides only after 0.45 s";
  world.pass(0.2);
  EXPECT_FALSE(world.tray->motion().isOpen());
  world.pass(0.3);
  EXPECT_FALSE(world.panel->visible);

  // Pinned, it stays up with the pointer away, and goes once the pin runs out.
  world.tray->pinFor(3);
  world.tray->show();
  world.pass(2.5);
  EXPECT_TRUE(world.panel->visible);
  EXPECT_TRUE(world.tray->motion().isOpen());
  world.pass(1.5);
  EXPECT_FALSE(world.panel->visible);
}

// While something else is up, or the goo is being pulled or pressed, the tray hides and
// a resting pointer doesn't bring it back.
TEST(TrayController, StaysHiddenWhileSuppressedOrPulled) {
  TrayWorld world;
  bool hubUp = false;
  world.tray->suppressed = [&] { return hubUp; };
  world.tray->pinFor(30);
  world.tray->show();
  world.pass(0.5);
  ASSERT_TRUE(world.panel->visible);

  hubUp = true;
  world.pass(0.5);
  EXPECT_FALSE(world.panel->visible) << "pinned or not";
  world.surfaces.pointerAt = world.overNotch();
  world.pass(1);
  EXPECT_FALSE(world.panel->visible);

  hubUp = false;
  world.pass(0.5);
  EXPECT_TRUE(world.panel->visible) << "the pointer still rests on the band";

  world.notch->pointerDown(world.overNotch());
  world.pass(0.6);
  EXPECT_FALSE(world.panel->visible) << "a pull or a long press puts the tray away";
  world.notch->pointerUp(world.overNotch(), false);
  world.surfaces.pointerAt = TrayWorld::kAway;
  world.pass(0.5);
  EXPECT_FALSE(world.panel->visible);
}

// The texts the view draws come from the model: the pill without content, the counts of
// the restore offer, a live row's dot, caption and image.
TEST(TrayModel, SaysWhatTheRowsShow) {
  TrayWorld world;
  TrayModel& model = world.tray->model();
  EXPECT_EQ(model.notchWidth, world.notch->notchRect().width);
  EXPECT_FALSE(model.hasContent());
  model.message = "Couldn't find notes on screen.";
  EXPECT_TRUE(model.hasContent());
  model.message.reset();

  auto snapshot = [](const std::string& name) {
    return PieceSnapshot{Target::folder(URL::fileURL("/tmp/" + name, true)), UUID(), name, {}};
  };
  model.restore = {snapshot("a")};
  EXPECT_TRUE(model.hasContent());
  EXPECT_EQ(model.restoreHeading(), "1 piece open when Zorvane closed");
  EXPECT_EQ(model.restoreMore(), std::nullopt);
  for (const char* name : {"b", "c", "d"}) model.restore.push_back(snapshot(name));
  EXPECT_EQ(model.restoreHeading(), "4 pieces open when Zorvane closed");
  EXPECT_EQ(model.restoreMore(), std::nullopt) << "four fit without a line more";
  for (const char* name : {"e", "f"}) model.restore.push_back(snapshot(name));
  EXPECT_EQ(model.restoreNames(), (std::vector<std::string>{"a", "b", "c", "d"}));
  EXPECT_EQ(model.restoreMore(), "+ 2 more");

  struct Case {
    Mood mood;
    bool busy;
    std::string kind;
    TrayModel::LiveRow::Dot dot;
    std::string caption;
    std::string image;
  };
  using Dot = TrayModel::LiveRow::Dot;
  for (const Case& c : std::vector<Case>{
           {Mood::needsApproval, true, "folder", Dot::orange, "needs you", "folder"},
           {Mood::working, true, "file", Dot::blue, "working", "doc"},
           {Mood::idle, false, "browser tab", Dot::green, "", "globe"},
           {Mood::idle, false, "app window", Dot::green, "", "macwindow"},
       }) {
    SCOPED_TRACE(c.kind);
    TrayModel::LiveRow row{UUID(), "x", c.mood, c.busy, c.kind};
    EXPECT_EQ(row.dot(), c.dot);
    EXPECT_EQ(row.caption(), c.caption);
    EXPECT_EQ(row.image(), c.image);
  }
}

}  // namespace
}  // namespace zorvane
