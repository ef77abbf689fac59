#include "core/goo/shapes.h"

#include <gtest/gtest.h>

#include <cmath>

#include "core/goo/ink_tokens.h"
#include "core/goo/spring.h"

namespace zorvane {
namespace {

// A spring reaches its goal and comes to rest, whatever the step.
TEST(GooSpring, Settles) {
  Spring spring({0, 0});
  for (int i = 0; i < 241; ++i) spring.step({10, -20}, i == 0 ? 0.01 : 1.0 / 120);
  EXPECT_NEAR(spring.position.x, 10, 1e-3);
  EXPECT_NEAR(spring.position.y, -20, 1e-3);
  EXPECT_NEAR(spring.velocity.length(), 0, 1e-2);
}

// The neck thins as a pulled piece moves away and is gone from the snap distance on; the
// body keeps less mass per piece out, never under 40 %; the approval throb only swells.
TEST(GooShapes, NeckMassAndThrob) {
  EXPECT_EQ(neckWidth(-5, 22, 95), 22);
  EXPECT_LT(neckWidth(47.5, 22, 95), 11);
  EXPECT_EQ(neckWidth(95, 22, 95), 0);
  EXPECT_EQ(neckWidth(200, 22, 95), 0);
  EXPECT_EQ(notchMassScale(0), 1);
  EXPECT_LT(notchMassScale(2), notchMassScale(1));
  EXPECT_EQ(notchMassScale(10), 0.4);
  EXPECT_GT(Shapes::moodParams(Mood::needsApproval, 1.0 / 4.8).throb, 1);
  EXPECT_EQ(Shapes::moodParams(Mood::needsApproval, 0.6).throb, 1) << "the negative half of the wave is cut";
}

// A tentacle is one chain from `from` to `to` that sways sideways, swells at its bulges
// (measured from the `to` end) and with its flare, and stays finite between equal points.
TEST(GooShapes, Tentacle) {
  auto strand = Shapes::tentacle({0, 0}, {280, 0}, 0, {}, 0);
  ASSERT_FALSE(strand.empty());
  EXPECT_EQ(strand.front().a, (Point{0, 0}));
  EXPECT_NEAR(strand.back().b.x, 280, 1e-9);
  EXPECT_NEAR(strand.back().b.y, 0, 1e-9);
  for (size_t i = 1; i < strand.size(); ++i) EXPECT_EQ(strand[i].a, strand[i - 1].b);
  double sway = 0;
  for (const auto& c : strand) sway = std::max(sway, std::abs(c.a.y));
  EXPECT_GT(sway, 3);
  EXPECT_LT(sway, 7);
  for (const auto& c : Shapes::tentacle({5, 5}, {5, 5}, 1.3, {}, 0)) {
    EXPECT_TRUE(std::isfinite(c.a.x) && std::isfinite(c.a.y));
    EXPECT_EQ(c.a.x, 5);
  }
  EXPECT_GT(Shapes::tentacle({0, 0}, {280, 0}, 0, {0}, 0).back().rb, strand.back().rb);
  EXPECT_EQ(Shapes::tentacle({0, 0}, {280, 0}, 0, {0}, 0).front().ra, strand.front().ra);
  EXPECT_GT(Shapes::tentacle({0, 0}, {280, 0}, 0, {1}, 0).front().ra, strand.front().ra);
  EXPECT_DOUBLE_EQ(Shapes::tentacle({0, 0}, {280, 0}, 0, {}, 0.5).front().ra, strand.front().ra * 1.5);
}

// `--slow <factor>` slows every animation; anything but a positive number is ignored.
TEST(GooInk, SlowMotion) {
  using Args = std::vector<std::string>;
  EXPECT_EQ(Ink::Timing::parseSlowMotion(Args{"zorvane", "--perf", "--slow", "4.5"}), 4.5);
  for (const Args& args : {Args{"zorvane"}, Args{"zorvane", "--slow", "fast"}, Args{"zorvane", "--slow", "3x"},
                           Args{"zorvane", "--slow"}, Args{"zorvane", "--slow", "0"}, Args{"--slow", "2"}}) {
    EXPECT_EQ(Ink::Timing::parseSlowMotion(args), 1.0) << ::testing::PrintToString(args);
  }
  EXPECT_EQ(Ink::Timing::slowMotion(), 1.0);
  Ink::Timing::setSlowMotion(3);
  EXPECT_EQ(Ink::Timing::slowMotion(), 3.0);
  Ink::Timing::setSlowMotion(-1);
  EXPECT_EQ(Ink::Timing::slowMotion(), 1.0);
}

}  // namespace
}  // namespace zorvane
