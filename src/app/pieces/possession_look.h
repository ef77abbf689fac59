// PossessionLook: the goo on a piece's target, drawn in the piece's overlay (a view 44
// points larger than the target on each side, so the target's frame starts at (44, 44)).
//
// When the piece bonds, goo floods the target from the drop point while strands lunge
// out of it to the target's edges; then it draws back. A window keeps a thin living
// border: a hole opens at the drop point and eats the flood while the strands let go one
// after another. An icon keeps a dark cover and grows a fringe of short hairs that walk
// round it. On retirement the border, core and fringe fade out and the wipe runs; once
// it is done `scene` returns no shapes and the owner may hide the overlay.
//
// `cover`, `corner` and `knot` are where the rest of the piece hangs on: the knot (the
// handle the user drags tentacles from) sits at the cover's top right corner.
//
// Times are seconds since 1970. The animation runs on its own clock, the time since the
// bond divided by the slow-motion factor. `scene` is called once per displayed frame and
// steps the strands by the time since the previous call (at most 1/30 s of their own),
// so it is not const. Main queue only, as the anchor is.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <random>
#include <vector>

#include "app/pieces/strand.h"
#include "app/resolver/anchor.h"
#include "core/goo/mood.h"
#include "core/ink/goo_scene.h"

namespace zorvane {

class PossessionLook {
 public:
  static constexpr double kMargin = 44;  // the overlay's margin round the target
  // How long the border, core and fringe take to fade once retired.
  static constexpr double kRetireSeconds = 0.45;

  // `seed` makes the strands' random numbers repeatable; without it they are seeded
  // from the system's entropy.
  PossessionLook(std::shared_ptr<Anchor> anchor, Point dropPoint, double bondTime,
                 std::optional<uint64_t> seed = std::nullopt);

  Mood mood = Mood::idle;             // set by the owner before each frame
  std::optional<double> retireStart;  // set when the piece retires
  std::optional<double> ripple;       // set when a ripple is wanted

  // The part of the overlay view the goo covers.
  [[nodiscard]] Rect cover() const;
  // The goo's corner radius.
  [[nodiscard]] double corner() const;
  // The knot's screen point: near the cover's top right corner.
  [[nodiscard]] Point knot() const;
  // The frame at `t`, in the overlay view's points. Steps the strands.
  GooScene scene(double t);

  // How far a ray from `from` at `angle` (radians) goes before it leaves `rect`; 0 when
  // `from` is already outside in that direction.
  [[nodiscard]] static double rayExit(Point from, double angle, const Rect& rect);
  // A fresh set of strands from `start` to the edges of `cover`: 5 thin ones for an
  // icon, 7 for a window, evenly spread round the circle with some jitter, letting go in
  // a shuffled order. Draws on this look's random numbers.
  [[nodiscard]] std::vector<Strand> makeStrands(const Rect& cover, Point start, bool icon);

  [[nodiscard]] double bondTime() const { return bondTime_; }
  // The drop point minus the anchor frame's minimum corner.
  [[nodiscard]] Point dropOffset() const { return dropOffset_; }
  // Empty until the first frame.
  [[nodiscard]] const std::vector<Strand>& strands() const { return strands_; }
  // The time of the last frame that stepped the strands.
  [[nodiscard]] std::optional<double> lastSim() const { return lastSim_; }

 private:
  double random(double lo, double hi);

  std::shared_ptr<Anchor> anchor_;
  double bondTime_;
  Point dropOffset_;
  std::vector<Strand> strands_;
  std::optional<double> lastSim_;
  std::mt19937_64 rng_;
};

}  // namespace zorvane
