#include <gtest/gtest.h>

#include <memory>

#include "app/notch/tether_ink.h"
#include "app/notch/tether_motion.h"
#include "support/fake_time.h"

namespace zorvane {
namespace {

struct MotionWorld : testing::FakeTime {
  MotionWorld() : FakeTime(0) {}
};

// The content shows a moment after the card opens and hides at once when it closes; a
// close completes once the goo has drawn back, unless it was already closing or the card
// opened again meanwhile.
TEST(TetherMotion, OpensAfterAPauseAndClosesOnce) {
  MotionWorld world;
  auto motion = TetherMotion::make(world.queue, *world.clock);
  int changes = 0;
  motion->onChange = [&] { ++changes; };

  motion->open();
  EXPECT_EQ(motion->openedAt(), world.clock->wallSeconds());
  world.pass(0.1);
  EXPECT_FALSE(motion->isOpen()) << "the goo leads, the content follows";
  world.pass(0.15);
  EXPECT_TRUE(motion->isOpen());
  EXPECT_EQ(changes, 1);

  int firstDone = 0, secondDone = 0;
  motion->close([&] { ++firstDone; });
  EXPECT_FALSE(motion->isOpen());
  EXPECT_EQ(changes, 2);
  std::optional<double> closedAt = motion->closedAt();
  ASSERT_TRUE(closedAt);
  world.pass(0.1);
  motion->close([&] { ++secondDone; });
  EXPECT_EQ(motion->closedAt(), closedAt) << "a second close changes nothing";
  world.pass(0.2);
  EXPECT_EQ(firstDone, 1);
  world.pass(1);
  EXPECT_EQ(firstDone, 1);
  EXPECT_EQ(secondDone, 0);

  // Opening again right after a close cancels that close.
  motion->open();
  world.pass(0.3);
  ASSERT_TRUE(motion->isOpen());
  int cancelledDone = 0;
  motion->close([&] { ++cancelledDone; });
  world.pass(0.05);
  motion->open();
  EXPECT_FALSE(motion->closedAt());
  world.pass(0.5);
  EXPECT_EQ(cancelledDone, 0);
  EXPECT_TRUE(motion->isOpen());

  // A close before the content has shown keeps it hidden.
  motion->close({});
  world.pass(0.5);
  int before = changes;
  motion->open();
  world.pass(0.05);
  int quickDone = 0;
  motion->close([&] { ++quickDone; });
  world.pass(0.5);
  EXPECT_FALSE(motion->isOpen());
  EXPECT_EQ(changes, before) << "the content never showed";
  EXPECT_EQ(quickDone, 1);

  // Nothing runs for a motion that is gone.
  motion->open();
  int orphanDone = 0;
  motion->close([&] { ++orphanDone; });
  motion.reset();
  world.pass(1);
  EXPECT_EQ(orphanDone, 0);
}

// The card hangs from a stem under the top edge, with two ears beside the stem unless
// compact; it springs out after the stem and draws back into the knob.
TEST(TetherInk, CardStemAndEarsFollowTheMotion) {
  Size size{360, 220};
  double t = 1780315200.0;

  GooScene full = TetherInk::scene(t, size, 18, false, nullptr);
  ASSERT_EQ(full.boxes.size(), 1u);
  EXPECT_EQ(full.boxes[0].rect, (Rect{0, 20, 360, 200}));
  EXPECT_EQ(full.boxes[0].corner, 18);
  EXPECT_EQ(full.capsules.size(), 6u) << "a stem of two capsules and two ears of two";
  EXPECT_TRUE(full.blobs.empty());
  EXPECT_FALSE(full.shadow);

  GooScene compact = TetherInk::scene(t, size, 300, true, nullptr);
  ASSERT_EQ(compact.boxes.size(), 1u);
  EXPECT_EQ(compact.boxes[0].rect, (Rect{0, 12, 360, 208}));
  EXPECT_EQ(compact.boxes[0].corner, 104) << "the corner never exceeds half the card";
  EXPECT_EQ(compact.capsules.size(), 2u);
  EXPECT_TRUE(TetherInk::scene(t, {360, 28}, 18, false, nullptr).isEmpty());
  EXPECT_FALSE(TetherInk::scene(t, {360, 29}, 18, false, nullptr).isEmpty());

  MotionWorld world;
  auto motion = TetherMotion::make(world.queue, *world.clock);
  motion->open();
  double opened = motion->openedAt();
  EXPECT_TRUE(TetherInk::scene(opened, size, 18, false, motion.get()).isEmpty());
  GooScene stem = TetherInk::scene(opened + 0.05, size, 18, false, motion.get());
  EXPECT_TRUE(stem.boxes.empty());
  EXPECT_EQ(stem.capsules.size(), 2u);
  EXPECT_EQ(stem.blobs.size(), 1u) << "the knob shows until the card comes out";
  GooScene springing = TetherInk::scene(opened + 0.15, size, 18, false, motion.get());
  ASSERT_EQ(springing.boxes.size(), 1u);
  EXPECT_LT(springing.boxes[0].rect.width, 360);
  EXPECT_DOUBLE_EQ(springing.boxes[0].rect.x + springing.boxes[0].rect.width / 2, 180) << "centred under the stem";
  GooScene open = TetherInk::scene(opened + 2, size, 18, false, motion.get());
  ASSERT_EQ(open.boxes.size(), 1u);
  EXPECT_NEAR(open.boxes[0].rect.width, 360, 0.5);
  EXPECT_EQ(open.capsules.size(), 6u);

  world.pass(2);
  motion->close({});
  double closed = *motion->closedAt();
  GooScene closing = TetherInk::scene(closed + 0.1, size, 18, false, motion.get());
  ASSERT_EQ(closing.boxes.size(), 1u);
  EXPECT_LT(closing.boxes[0].rect.height, 200);
  EXPECT_EQ(closing.capsules.size(), 2u) << "the ears go first";
  EXPECT_TRUE(TetherInk::scene(closed + 0.3, size, 18, false, motion.get()).isEmpty());
}

}  // namespace
}  // namespace zorvane
