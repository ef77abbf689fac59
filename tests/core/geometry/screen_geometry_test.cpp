#include "core/geometry/screen_geometry.h"

#include <gtest/gtest.h>

namespace zorvane {
namespace {

TEST(GeometryScreen, Subtract) {
  Rect r{0, 0, 100, 100};
  EXPECT_EQ(subtract(r, {200, 200, 10, 10}), std::vector<Rect>{r});
  EXPECT_EQ(subtract(r, {100, 0, 10, 10}), std::vector<Rect>{r}) << "touching edges leave no overlap";
  EXPECT_TRUE(subtract({10, 10, 20, 20}, r).empty());
  // A hole in the middle: below, above, left, right, in that order.
  EXPECT_EQ(subtract(r, {40, 30, 20, 10}),
            (std::vector<Rect>{{0, 0, 100, 30}, {0, 40, 100, 60}, {0, 30, 40, 10}, {60, 30, 40, 10}}));
  // A hole over the left half leaves only the right strip.
  EXPECT_EQ(subtract(r, {-10, -10, 60, 120}), (std::vector<Rect>{{50, 0, 50, 100}}));
}

TEST(GeometryScreen, UnoccludedRects) {
  Rect target{0, 0, 100, 100};
  std::vector<WindowFrame> windows{{7, {0, 0, 50, 100}}, {3, target}, {9, {50, 0, 50, 50}}};
  // The target at the very front: all of it.
  EXPECT_EQ(unoccludedRects(target, 7, windows), std::vector<Rect>{target});
  EXPECT_EQ(unoccludedRects(target, 3, windows), (std::vector<Rect>{{50, 0, 50, 100}}));
  // Without an id every window is in front; here they cover it all.
  EXPECT_TRUE(unoccludedRects(target, std::nullopt, windows).empty());
  // An id not in the list: every window counts too.
  EXPECT_EQ(unoccludedRects(target, 42, {windows[2]}), (std::vector<Rect>{{0, 50, 100, 50}, {0, 0, 50, 50}}));
}

}  // namespace
}  // namespace zorvane
