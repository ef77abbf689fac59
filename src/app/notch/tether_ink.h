// TetherInk: the goo of the ink card under the notch. A stem hangs from the top edge of
// the screen, the card grows out of its knob, and (when not compact) two thin ears wave
// either side of the stem. With a TetherMotion the stem, card and ears come and go with
// it; without one all three stand fully out.
//
// Pure: the scene is a function of the time, the view's size and the values given; the
// view asks for it on every frame, at `kFramesPerSecond`.
#pragma once

#include "app/notch/tether_motion.h"
#include "core/geometry/geometry.h"
#include "core/ink/goo_scene.h"

namespace zorvane {

struct TetherInk {
  static constexpr int kFramesPerSecond = 120;

  // The frame at `t` (seconds since 1970) for a view of `size`, in the view's points.
  // `corner` is the card's corner radius; `motion` may be null.
  [[nodiscard]] static GooScene scene(double t, Size size, double corner, bool compact, const TetherMotion* motion);
};

}  // namespace zorvane
