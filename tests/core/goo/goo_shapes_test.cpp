#include "core/goo/shapes.h"

#include <gtest/gtest.h>

#include <cmath>

#include "core/goo/ink_tokens.h"
#include "core/goo/spring.h"

namespace zorvane {
namespace {

TEST(GooSpring, StepsSemiImplicitlyAndSettles) {
  Spring spring({0, 0});
  spring.step({10, -20}, 0.01);
  // a = 10 × 180 = 1800 → v = 18, x = 0.18 (the new velocity moves the point).
  EXPECT_DOUBLE_EQ(spring.velocity.x, 18);
  EXPECT_DOUBLE_EQ(spring.position.x, 0.18);
  EXPECT_DOUBLE_EQ(spring.position.y, -0.36);
  for (int i = 0; i < 240; ++i) spring.step({10, -20}, 1.0 / 120);
  EXPECT_NEAR(spring.position.x, 10, 1e-3);
  EXPECT_NEAR(spring.position.y, -20, 1e-3);
  EXPECT_NEAR(spring.velocity.length(), 0, 1e-2);
}

TEST(GooShapes, NeckAndMass) {
  EXPECT_EQ(neckWidth(-5, 22, 95), 22);
  EXPECT_EQ(neckWidth(0, 22, 95), 22);
  EXPECT_DOUBLE_EQ(neckWidth(47.5, 22, 95), 22 * std::pow(0.5, 1.6));
  EXPECT_EQ(neckWidth(95, 22, 95), 0);
  EXPECT_EQ(neckWidth(200, 22, 95), 0);

  EXPECT_EQ(notchMassScale(0), 1);
  EXPECT_DOUBLE_EQ(notchMassScale(2), 0.7);
  EXPECT_EQ(notchMassScale(4), 0.4);
  EXPECT_EQ(notchMassScale(10), 0.4);
}

TEST(GooShapes, Tentacle) {
  auto strand = Shapes::tentacle({0, 0}, {280, 0}, 0, {}, 0);
  ASSERT_EQ(strand.size(), 28u);
  EXPECT_EQ(strand.front().a, (Point{0, 0}));
  EXPECT_NEAR(strand.back().b.x, 280, 1e-9);
  EXPECT_NEAR(strand.back().b.y, 0, 1e-9);
  EXPECT_DOUBLE_EQ(strand.front().ra, 8);
  EXPECT_DOUBLE_EQ(strand.back().rb, 2.5);
  EXPECT_EQ(strand.front().blend, 6);
  EXPECT_EQ(strand[1].blend, 2.5);
  for (size_t i = 1; i < strand.size(); ++i) EXPECT_EQ(strand[i].a, strand[i - 1].b);
  // The wave moves sideways, along the normal (0, 1) of a strand pointing right.
  double sway = 0;
  for (const auto& c : strand) sway = std::max(sway, std::abs(c.a.y));
  EXPECT_GT(sway, 3);
  EXPECT_LT(sway, 7);

  // Between two equal points: no division by zero, the strand is a stack of radii.
  auto stub = Shapes::tentacle({5, 5}, {5, 5}, 1.3, {}, 0);
  for (const auto& c : stub) {
    EXPECT_TRUE(std::isfinite(c.a.x) && std::isfinite(c.a.y));
    EXPECT_EQ(c.a.x, 5);
  }

  // Bulges are measured from the `to` end; two close ones add up; flare scales all.
  auto toEnd = Shapes::tentacle({0, 0}, {280, 0}, 0, {0}, 0);
  EXPECT_DOUBLE_EQ(toEnd.back().rb, 7.5);
  EXPECT_DOUBLE_EQ(toEnd.front().ra, 8);
  auto fromEnd = Shapes::tentacle({0, 0}, {280, 0}, 0, {1}, 0);
  EXPECT_DOUBLE_EQ(fromEnd.front().ra, 13);
  auto twice = Shapes::tentacle({0, 0}, {280, 0}, 0, {0, 0.01}, 0);
  EXPECT_NEAR(twice.back().rb, 2.5 + 5 + (1 - 0.01 / 0.07) * 5, 1e-9);
  auto flared = Shapes::tentacle({0, 0}, {280, 0}, 0, {}, 0.5);
  EXPECT_DOUBLE_EQ(flared.front().ra, 12);
}

TEST(GooShapes, MoodParams) {
  auto idle = Shapes::moodParams(Mood::idle, 0.5);  // w = π: sin(π/2) = 1
  EXPECT_EQ(idle.ripple, 1.2);
  EXPECT_EQ(idle.thorn, 5);
  EXPECT_DOUBLE_EQ(idle.throb, 1.03);
  auto working = Shapes::moodParams(Mood::working, 1.0 / 24);  // sin(6 × π/12) = 1
  EXPECT_EQ(working.ripple, 2.0);
  EXPECT_DOUBLE_EQ(working.thorn, 18);
  EXPECT_EQ(working.throb, 1);
  auto approval = Shapes::moodParams(Mood::needsApproval, 1.0 / 4.8);  // sin(1.2 × 2π/4.8) = 1
  EXPECT_EQ(approval.ripple, 1.5);
  EXPECT_EQ(approval.thorn, 7);
  EXPECT_DOUBLE_EQ(approval.throb, 1.14);
  EXPECT_EQ(Shapes::moodParams(Mood::needsApproval, 0.6).throb, 1) << "the negative half of the wave is cut";
}

TEST(GooInk, SlowMotion) {
  using Args = std::vector<std::string>;
  EXPECT_EQ(Ink::Timing::parseSlowMotion(Args{"zorvane"}), 1.0);
  EXPECT_EQ(Ink::Timing::parseSlowMotion(Args{"zorvane", "--perf", "--slow", "4.5"}), 4.5);
  EXPECT_EQ(Ink::Timing::parseSlowMotion(Args{"zorvane", "--slow", "fast"}), 1.0);
  EXPECT_EQ(Ink::Timing::parseSlowMotion(Args{"zorvane", "--slow", "3x"}), 1.0);
  EXPECT_EQ(Ink::Timing::parseSlowMotion(Args{"zorvane", "--slow"}), 1.0);
  EXPECT_EQ(Ink::Timing::parseSlowMotion(Args{"zorvane", "--slow", "0"}), 1.0);
  EXPECT_EQ(Ink::Timing::parseSlowMotion(Args{"--slow", "2"}), 1.0) << "the first argument is the program";

  EXPECT_EQ(Ink::Timing::slowMotion(), 1.0);
  Ink::Timing::setSlowMotion(3);
  EXPECT_EQ(Ink::Timing::slowMotion(), 3.0);
  Ink::Timing::setSlowMotion(-1);
  EXPECT_EQ(Ink::Timing::slowMotion(), 1.0);
}

}  // namespace
}  // namespace zorvane
