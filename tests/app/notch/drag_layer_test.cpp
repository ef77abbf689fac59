#include "app/notch/drag_layer.h"

#include <gtest/gtest.h>

#include "core/ink/ink_pipeline.h"
#include "platform/fake/fake_surfaces.h"
#include "support/fake_time.h"

namespace zorvane {
namespace {

struct DragWorld : testing::FakeTime {
  FakeSurfaces surfaces;
  std::shared_ptr<DragLayer> layer = DragLayer::make(surfaces, queue, *clock, {0, 0, 1920, 1080});

  FakePanel::Record& panel() { return *surfaces.named("drag layer").front(); }
  // Frames at 120 a second for `seconds`, the cursor moving from where it is to `to`.
  GooScene move(Point to, double seconds) {
    GooScene scene;
    Point from = layer->cursor;
    int frames = std::max(1, int(seconds * 120));
    for (int i = 1; i <= frames; ++i) {
      layer->cursor = from + (to - from) * (double(i) / frames);
      clock->advance(1.0 / 120);
      queue.runUntilIdle();
      scene = panel().scene(clock->wallSeconds(), panel().frame.size());
    }
    return scene;
  }
};

TEST(DragLayer, ShowsOnlyWhileADragRuns) {
  DragWorld world;
  EXPECT_FALSE(world.panel().visible);
  EXPECT_TRUE(world.panel().options.clickThrough);
  EXPECT_EQ(world.panel().frame, (Rect{0, 0, 1920, 1080}));

  world.layer->begin(DragLayer::Mode::pull, {960, 54});
  EXPECT_TRUE(world.panel().visible);
  world.move({960, 120}, 0.1);
  world.layer->retract(false);
  world.move({960, 120}, 0.3);
  // A new drag within the half second keeps the panel: the pending hide finds it busy.
  world.layer->begin(DragLayer::Mode::pull, {960, 54});
  world.move({960, 54}, 1.0);
  EXPECT_TRUE(world.panel().visible);
  world.layer->retract(false);
  world.move({960, 54}, 0.45);
  EXPECT_TRUE(world.panel().visible) << "the retraction plays out first";
  world.move({960, 54}, 0.1);
  EXPECT_FALSE(world.panel().visible);
}

TEST(DragLayer, PullPinchesOnceBeyondTheNeckAndStaysPinched) {
  DragWorld world;
  Point origin{960, 54};
  world.layer->begin(DragLayer::Mode::pull, origin);
  GooScene stretched = world.move(origin + Point{0, 80}, 0.4);
  EXPECT_FALSE(world.layer->pinched());
  ASSERT_EQ(stretched.blobs.size(), 1u) << "the neck's root at the notch";
  EXPECT_EQ(stretched.blobs[0].center, (Point{960, 50}));

  world.move(origin + Point{0, 200}, 0.4);
  ASSERT_TRUE(world.layer->pinched());
  double when = world.layer->pinched()->time;
  GooScene back = world.move(origin + Point{0, 20}, 0.6);
  EXPECT_EQ(world.layer->pinched()->time, when) << "pulling back doesn't mend the neck";
  EXPECT_TRUE(back.blobs.empty());
  EXPECT_LE(back.capsules.size(), 40u);
  EXPECT_EQ(back.blend, 8);

  // Going home from a whole neck never pinches, however far it reaches.
  DragWorld home;
  home.layer->begin(DragLayer::Mode::pull, origin);
  home.move(origin + Point{0, 60}, 0.3);
  home.layer->cursor = origin + Point{0, 400};
  home.layer->retract(false);
  home.move(origin + Point{0, 400}, 0.4);
  EXPECT_FALSE(home.layer->pinched());
}

TEST(DragLayer, ADropletThatLandsStaysPutAndFadesFast) {
  DragWorld world;
  world.layer->begin(DragLayer::Mode::pull, {960, 54});
  world.move({700, 500}, 0.5);
  world.move({700, 500}, 0.5);
  Point landed = world.layer->tip().position;
  EXPECT_NEAR(landed.x, 700, 2);
  EXPECT_NEAR(landed.y, 500, 2);
  world.layer->retract(true);
  GooScene early = world.move({900, 900}, 0.1);
  EXPECT_EQ(world.layer->tip().position, landed);
  EXPECT_FALSE(early.isEmpty());
  GooScene gone = world.move({900, 900}, 0.06);
  EXPECT_TRUE(gone.isEmpty()) << "gone by a third of the retraction";

  // At rest the body is a plain circle of radius 14 round the tip, the lobes still wave.
  DragWorld still;
  still.layer->begin(DragLayer::Mode::pull, {960, 54});
  still.move({960, 300}, 0.4);
  GooScene resting = still.move({960, 300}, 2.0);
  Point tip = still.layer->tip().position;
  bool circle = false;
  for (const GooCapsule& c : resting.capsules)
    if ((c.a - tip).length() < 0.5 && (c.b - tip).length() < 0.5 && std::abs(c.ra - 14) < 0.5) circle = true;
  EXPECT_TRUE(circle);
  EXPECT_GE(resting.capsules.size(), 1u + 6 * 6 - 12);
}

TEST(DragLayer, TentacleArmReachesTheCursorAndWithdrawsKeepingItsClaw) {
  DragWorld world;
  EXPECT_TRUE(world.layer->scene(world.clock->wallSeconds()).isEmpty()) << "no arm before a drag";
  EXPECT_EQ(world.layer->scene(world.clock->wallSeconds()).blend, 9);

  Point knot{400, 400};
  world.layer->begin(DragLayer::Mode::tentacle, knot);
  GooScene arm = world.move({900, 600}, 0.8);
  arm = world.move({900, 600}, 0.5);
  const auto& rope = world.layer->rope();
  ASSERT_EQ(rope.size(), 22u);
  EXPECT_EQ(rope.front(), knot);
  EXPECT_NEAR(rope.back().x, 900, 3);
  EXPECT_NEAR(rope.back().y, 600, 3);
  EXPECT_LE(arm.capsules.size(), 64u);
  EXPECT_EQ(arm.blobs.size(), 2u) << "root and claw";
  EXPECT_EQ(arm.blend, 7);
  // Every rope segment is near its rest length: the rope neither sags apart nor bunches.
  double total = 0;
  for (size_t i = 1; i < rope.size(); ++i) total += (rope[i] - rope[i - 1]).length();
  EXPECT_NEAR(total, (rope.back() - rope.front()).length() * 1.06, 30);

  Point claw = arm.blobs.back().center;
  world.layer->retract(true);
  GooScene half = world.move({900, 600}, 0.225);
  EXPECT_LT(half.capsules.size(), arm.capsules.size());
  EXPECT_NEAR(half.blobs.back().center.x, claw.x, 8) << "the claw stays where it was dropped";
  GooScene end = world.move({900, 600}, 0.3);
  EXPECT_GE(end.capsules.size(), 1u) << "at least one segment is left";
  EXPECT_EQ(end.blobs.size(), 1u) << "the claw has faded";
}

TEST(DragLayer, StallsAndScreenChangesKeepTheGooInOnePiece) {
  DragWorld world;
  world.layer->begin(DragLayer::Mode::tentacle, {100, 100});
  world.move({600, 300}, 0.5);
  // A frame after a long stall steps only 1/30 s.
  world.clock->advance(5);
  GooScene after = world.panel().scene(world.clock->wallSeconds(), world.panel().frame.size());
  for (const GooCapsule& c : after.capsules) {
    EXPECT_TRUE(std::isfinite(c.a.x) && std::isfinite(c.b.y));
  }
  EXPECT_LT((world.layer->tip().position - Point{600, 300}).length(), 40);

  // A new screen corner: the scene follows in the panel's own points.
  Point before = world.layer->rope().front();
  world.layer->relayout({-200, 0, 1280, 800});
  EXPECT_EQ(world.panel().frame, (Rect{-200, 0, 1280, 800}));
  EXPECT_EQ(world.layer->rope().front(), (before + Point{200, 0}));
  InkPipeline::Binned binned;
  GooScene scene = world.move({600, 300}, 0.1);
  InkPipeline::bin(scene, world.panel().frame.size(), InkPipeline::tile(), binned);
  EXPECT_FALSE(binned.prims.empty());
}

}  // namespace
}  // namespace zorvane
