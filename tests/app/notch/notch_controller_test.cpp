#include "app/notch/notch_controller.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "platform/fake/fake_surfaces.h"
#include "support/fake_time.h"

namespace zorvane {
namespace {

struct NotchWorld : testing::FakeTime {
  FakeSurfaces surfaces;
  ScreenInfo screen{{0, 0, 1920, 1080}, {0, 28, 1920, 1052}, true};
  std::shared_ptr<NotchController> notch = NotchController::make(surfaces, queue, *clock, screen, 7);
  std::vector<std::string> calls;

  NotchWorld() : FakeTime(0.01) {
    notch->onPull = [this](Point) { calls.push_back("pull"); };
    notch->onPullDrag = [this](Point) { calls.push_back("drag"); };
    notch->onPullEnd = [this](Point) { calls.push_back("end"); };
    notch->onTap = [this] { calls.push_back("tap"); };
    notch->onLongPress = [this] { calls.push_back("long"); };
    notch->onLongPressEnd = [this] { calls.push_back("longEnd"); };
  }
  FakePanel::Record& panel() { return *surfaces.named("Zorvane").front(); }
  // Runs frames of the panel's size for `seconds` at 60 a second; returns the last.
  GooScene frames(double seconds) {
    GooScene scene;
    Size size = panel().frame.size();
    for (double step = 0; step < seconds; step += 1.0 / 60) {
      clock->advance(1.0 / 60);
      queue.runUntilIdle();
      scene = notch->scene(clock->wallSeconds(), size);
    }
    return scene;
  }
  Point middle() const { return {notch->notchRect().x + 70, notch->notchRect().y + 10}; }
};

double bodyBottom(const GooScene& scene) {
  return scene.boxes.empty() ? 0 : scene.boxes.front().rect.maxY();
}

TEST(NotchController, HangsFromTheWorkAreaAndFollowsTheScreen) {
  NotchWorld world;
  // 140 × 26 at the top centre, under the 28-point top panel; the panel 80 wider each
  // side and 80 deeper.
  EXPECT_EQ(world.notch->notchRect(), (Rect{890, 28, 140, 26}));
  EXPECT_FALSE(world.notch->hasNotch());
  EXPECT_EQ(world.panel().frame, (Rect{810, 28, 300, 106}));
  EXPECT_TRUE(world.panel().visible);
  EXPECT_TRUE(world.panel().options.clickThrough) << "clicks pass until the pointer comes near";

  world.notch->relayout({{0, 0, 1024, 768}, {0, 0, 1024, 768}, true});
  EXPECT_EQ(world.notch->notchRect(), (Rect{442, 0, 140, 26}));
  EXPECT_EQ(world.panel().frame, (Rect{362, 0, 300, 106}));
}

TEST(NotchController, GesturesEndAsExactlyOneOfPullOrLongPress) {
  {
    // A press held still past 0.45 s is a long press; its end is not a pull's end.
    NotchWorld world;
    world.notch->pointerDown(world.middle());
    world.pass(0.3);
    world.notch->pointerDrag(world.middle() + Point{3, 2});
    world.pass(0.2);
    EXPECT_TRUE(world.notch->isLongPressed());
    world.notch->pointerDrag(world.middle() + Point{40, 40});
    world.notch->pointerUp(world.middle(), true);
    EXPECT_EQ(world.calls, (std::vector<std::string>{"pull", "drag", "long", "longEnd"}));
  }
  {
    // Moved 7 points after 0.2 s: a pull for good, however long it is held.
    NotchWorld world;
    world.notch->pointerDown(world.middle());
    world.pass(0.2);
    world.notch->pointerDrag(world.middle() + Point{7, 0});
    world.pass(1.0);
    EXPECT_FALSE(world.notch->isLongPressed());
    world.notch->pointerUp(world.middle() + Point{7, 0}, true);
    EXPECT_EQ(world.calls, (std::vector<std::string>{"pull", "drag", "end"}));
  }
  {
    // A quick press that never moved: the pull ends, then the tap.
    NotchWorld world;
    world.notch->pointerDown(world.middle());
    world.pass(0.1);
    world.notch->pointerUp(world.middle(), false);
    world.pass(1.0);
    EXPECT_EQ(world.calls, (std::vector<std::string>{"pull", "end", "tap"}));
  }
}

TEST(NotchController, TakesThePointerOnlyNearTheBodyOrDuringAPress) {
  NotchWorld world;
  auto& panel = world.panel();
  world.surfaces.pointerAt = {200, 500};
  world.pass(0.1);
  EXPECT_TRUE(panel.options.clickThrough);
  world.surfaces.pointerAt = {world.notch->notchRect().x - 9, 40};  // within 10 of the band
  world.pass(0.1);
  EXPECT_FALSE(panel.options.clickThrough);
  world.surfaces.pointerAt = {world.notch->notchRect().x + 70, 28 + 26 + 15};  // 15 below
  world.pass(0.1);
  EXPECT_TRUE(panel.options.clickThrough);

  // During a press the panel keeps the pointer wherever it goes.
  world.notch->pointerDown(world.middle());
  world.surfaces.pointerAt = {200, 500};
  world.pass(0.6);
  EXPECT_FALSE(panel.options.clickThrough);
  world.notch->pointerUp({200, 500}, true);
  world.pass(0.1);
  EXPECT_TRUE(panel.options.clickThrough);
}

TEST(NotchController, ReachesForThePointerAndRestsWhenLeftAlone) {
  NotchWorld world;
  world.surfaces.pointerAt = {100, 900};
  GooScene rest = world.frames(2);
  EXPECT_LT(world.notch->magnet(), 0.01);
  EXPECT_TRUE(rest.capsules.size() == world.notch->dripCount()) << "no fringe at rest, only drips";
  EXPECT_EQ(world.notch->frameRate(), world.notch->dripCount() ? NotchController::kDripRate
                                                               : NotchController::kRestRate);
  ASSERT_EQ(rest.boxes.size(), 1u);
  EXPECT_EQ(rest.voidColor, (std::array<float, 3>{0, 0, 0})) << "black, to merge with the top of the screen";

  // The pointer 40 points under the right end of the band: the goo leans that way.
  Rect band = world.notch->notchRect();
  world.surfaces.pointerAt = {band.maxX() - 10, band.maxY() + 40};
  GooScene reaching = world.frames(1.5);
  EXPECT_GT(world.notch->magnet(), 0.5);
  EXPECT_GT(world.notch->magnetX(), 80 + 140 * 0.7);
  EXPECT_GT(bodyBottom(reaching), bodyBottom(rest) + 2) << "the body hangs lower";
  EXPECT_GE(reaching.capsules.size(), 3u);
  EXPECT_EQ(world.notch->frameRate(), NotchController::kActiveRate);

  // Exactly at the edge of its reach the pointer no longer draws it.
  world.surfaces.pointerAt = {band.x + 70, band.maxY() + NotchController::kReach};
  world.frames(3);
  EXPECT_LT(world.notch->magnet(), 0.01);
}

TEST(NotchController, ShowsWhatThePiecesDo) {
  NotchWorld world;
  world.surfaces.pointerAt = {100, 900};
  NotchActivity activity;
  world.notch->activity = [&activity] { return activity; };

  activity.working = 1;
  world.frames(2);
  EXPECT_GE(world.notch->magnet(), 0.29) << "a working goo never rests below 0.3";
  EXPECT_EQ(world.notch->frameRate(), NotchController::kActiveRate);

  // Waiting pumps the body: one waiting piece or ten, the same.
  activity = {};
  auto deepest = [&world](int waiting) {
    NotchWorld other;
    other.surfaces.pointerAt = {100, 900};
    other.notch->activity = [waiting] { return NotchActivity{waiting, 0, waiting}; };
    double most = 0;
    Size size = other.panel().frame.size();
    for (int i = 0; i < 120; ++i) {
      other.clock->advance(1.0 / 120);
      most = std::max(most, bodyBottom(other.notch->scene(1000.0 + i / 120.0, size)));
    }
    return most;
  };
  EXPECT_GT(deepest(1), deepest(0) + 1.5);
  EXPECT_DOUBLE_EQ(deepest(1), deepest(10));

  // Many pieces make it smaller, down to 40 % from four on.
  Size size = world.panel().frame.size();
  double now = world.clock->wallSeconds();
  auto bottomWith = [&](int pieces) {
    world.notch->livePieces = pieces;
    return bodyBottom(world.notch->scene(now, size));
  };
  double none = bottomWith(0), five = bottomWith(5), twenty = bottomWith(20);
  EXPECT_LT(five, none);
  EXPECT_DOUBLE_EQ(five, twenty);
}

TEST(NotchController, DripsWhenIdleAndRunsFastOnlyWhilePulled) {
  NotchWorld world;
  world.surfaces.pointerAt = {100, 900};
  size_t most = 0;
  for (int second = 0; second < 16; ++second) {
    world.frames(1);
    most = std::max(most, world.notch->dripCount());
  }
  EXPECT_GE(most, 1u) << "a drip every 4 to 7 seconds";
  EXPECT_LE(most, 1u) << "each drip is gone after 2.4 s, before the next";

  world.notch->pointerDown(world.middle());
  world.frames(0.1);
  EXPECT_EQ(world.panel().framesPerSecond, NotchController::kPullRate);
  world.notch->pointerUp(world.middle() + Point{0, 200}, true);
  world.frames(3);
  EXPECT_LT(world.panel().framesPerSecond, NotchController::kActiveRate);
}

}  // namespace
}  // namespace zorvane
