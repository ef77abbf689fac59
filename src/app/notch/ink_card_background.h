// InkCardBackground: a plain goo card filling a view, inset by `inset` points, behind a
// card's content. Pure; the view redraws it at `kFramesPerSecond`.
#pragma once

#include "core/geometry/geometry.h"
#include "core/ink/goo_scene.h"

namespace zorvane {

// The card's scene for a view of `size`: one box of the view's bounds inset by `inset`,
// with `corner`; no shapes when either side of that box is 4 points or less.
[[nodiscard]] GooScene inkCardScene(Size size, double corner, double inset);

struct InkCardBackground {
  static constexpr int kFramesPerSecond = 30;

  double corner = 0;
  double inset = 0;

  [[nodiscard]] GooScene scene(Size size) const { return inkCardScene(size, corner, inset); }
};

}  // namespace zorvane
