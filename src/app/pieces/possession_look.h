// PossessionLook: the goo that stays on a piece's target, drawn in the piece's overlay
// (a view 44 points larger than the target on each side, so the target's frame starts
// at (44, 44)). Round a window it is a thin living border; over an icon a dark cover.
// It moves with the mood, ripples on a question, and melts away when the piece retires.
//
// `cover`, `corner` and `knot` are where the rest of the piece hangs on: the knot (the
// handle the user drags tentacles from) sits at the cover's top right corner.
//
// Pure: every answer is computed from the anchor's frame and the time given; main
// queue only, as the anchor is.
#pragma once

#include <memory>
#include <optional>

#include "app/resolver/anchor.h"
#include "core/goo/mood.h"
#include "core/ink/goo_scene.h"

namespace zorvane {

class PossessionLook {
 public:
  static constexpr double kMargin = 44;      // the overlay's margin round the target
  static constexpr double kRetireSeconds = 0.45;

  PossessionLook(std::shared_ptr<Anchor> anchor, Point dropPoint, double bondTime);

  Mood mood = Mood::idle;
  std::optional<double> retireStart;  // seconds since 1970
  std::optional<double> ripple;       // seconds since 1970

  // The part of the overlay view the goo covers.
  [[nodiscard]] Rect cover() const;
  // The goo's corner radius.
  [[nodiscard]] double corner() const;
  // The knot's screen point: the cover's top right corner.
  [[nodiscard]] Point knot() const;
  // The frame at `t` (seconds since 1970), in the overlay view's points.
  [[nodiscard]] GooScene scene(double t) const;

  [[nodiscard]] double bondTime() const { return bondTime_; }
  [[nodiscard]] Point dropOffset() const { return dropOffset_; }

 private:
  std::shared_ptr<Anchor> anchor_;
  double bondTime_;
  Point dropOffset_;
};

}  // namespace zorvane
