// Space: X11 pixels to Qt's logical coordinates and back, the way Qt places screens
// with a device pixel ratio (each keeps its native top-left corner).
#include "ui/shell/space.h"

#include <gtest/gtest.h>

#include <string>
#include <variant>
#include <vector>

namespace zorvane {

static std::string describe(Point p) { return "(" + std::to_string(p.x) + ", " + std::to_string(p.y) + ")"; }
static std::string describe(const Rect& r) {
  return describe(r.origin()) + " " + std::to_string(r.width) + "x" + std::to_string(r.height);
}

TEST(Space, ConvertsOnTheScreenThatHoldsThePointAndBack) {
  // Retina-like primary on the left, an ordinary screen to its right.
  const std::vector<Space::Screen> mixed = {{{0, 0, 2560, 1600}, 2, true}, {{2560, 0, 1920, 1080}, 1, false}};
  // Ordinary primary on the left, a ratio-2 screen to its right, lower down.
  const std::vector<Space::Screen> secondHiDpi = {{{0, 0, 1920, 1080}, 1, true}, {{1920, 200, 3840, 2160}, 2, false}};
  const std::vector<Space::Screen> single = {{{0, 0, 1280, 800}, 1, true}};

  struct Case {
    std::string name;
    std::vector<Space::Screen> screens;
    std::variant<Point, Rect> native, logical;
  };
  const std::vector<Case> cases = {
      {"ratio 1 is the identity", single, Point{300, 400}, Point{300, 400}},
      {"ratio 1 rect", single, Rect{10, 20, 30, 40}, Rect{10, 20, 30, 40}},
      {"ratio 2 halves from the origin", mixed, Point{100, 50}, Point{50, 25}},
      {"ratio 2 rect", mixed, Rect{200, 100, 400, 300}, Rect{100, 50, 200, 150}},
      {"ratio 1 screen beside keeps its pixels", mixed, Point{2660, 40}, Point{2660, 40}},
      {"rect on the screen holding its centre", mixed, Rect{2500, 0, 200, 100}, Rect{2500, 0, 200, 100}},
      {"off every screen: the primary's terms", mixed, Point{-100, -60}, Point{-50, -30}},
      {"ratio 2 screen keeps its native corner", secondHiDpi, Point{1920, 200}, Point{1920, 200}},
      {"ratio 2 screen off the origin", secondHiDpi, Point{2120, 300}, Point{2020, 250}},
      {"ratio 2 rect off the origin", secondHiDpi, Rect{2020, 400, 800, 600}, Rect{1970, 300, 400, 300}},
      {"no screens: nothing scaled", {}, Rect{5, 6, 7, 8}, Rect{5, 6, 7, 8}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Space space(c.screens);
    if (auto* native = std::get_if<Point>(&c.native)) {
      Point logical = std::get<Point>(c.logical);
      EXPECT_EQ(space.toLogical(*native), logical) << describe(space.toLogical(*native));
      EXPECT_EQ(space.toNative(logical), *native) << describe(space.toNative(logical));
    } else {
      const Rect& nativeRect = std::get<Rect>(c.native);
      const Rect& logicalRect = std::get<Rect>(c.logical);
      EXPECT_EQ(space.toLogical(nativeRect), logicalRect) << describe(space.toLogical(nativeRect));
      EXPECT_EQ(space.toNative(logicalRect), nativeRect) << describe(space.toNative(logicalRect));
    }
  }
}

}  // namespace zorvane
