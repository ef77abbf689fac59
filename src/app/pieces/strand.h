// Strand: one tendril of goo that lunges out of a piece's drop point, holds on to the
// edge of its target and then lets go. It is a chain of 14 points (13 segments) moved by
// Verlet integration and kept in shape by distance and bending constraints; its radii
// come from a volume it keeps, so that it thins as it stretches and fattens as it
// shrinks.
//
// States: `waiting` → `lunge` → `held` → `recoil`, or `lunge` → `recoil` directly; the
// owner moves it out of `waiting` and into `recoil`, `step` moves it from `lunge` to
// `held` and, in `recoil`, to `dead`, which is final. A plain value owned by its
// PossessionLook; all coordinates are the overlay view's points.
#pragma once

#include <array>

#include "core/geometry/geometry.h"

namespace zorvane {

class Strand {
 public:
  enum class State { waiting, lunge, held, recoil };

  static constexpr int kPoints = 14;
  static constexpr int kSegments = kPoints - 1;

  Point root;       // the drop point, where the chain starts
  Point anchor;     // the far end it reaches for
  double delay = 0;    // seconds after the bond when it starts
  double release = 0;  // seconds into its owner's retreat when it lets go
  State state = State::waiting;
  bool dead = false;
  std::array<Point, kPoints> pos{};   // Verlet positions now
  std::array<Point, kPoints> prev{};  // and one step ago
  std::array<double, kPoints> rad{};  // radius at each point
  double rest = 0.5;    // rest length of one segment
  double volume = 0;    // kept while it stretches
  double u = 0;         // reach along root → anchor, 0 to 1 (it overshoots a little)
  double ud = 0;        // and its speed
  bool kick = true;     // until the first lunge step
  double side = 1;      // 1 or -1: the side it bows to
  double wig = 1;       // how strongly it bows
  double phase = 0;     // phase of its travelling wave
  double length = 0;    // its real length after the last step
  double recoiled = 0;  // seconds spent in `recoil`

  // Advances the chain by `dt` seconds; `t` drives its wave. Does nothing while
  // `waiting` or once `dead`.
  void step(double dt, double t);

  // Shortens the chain to `len` from the root's end, keeping the tip where it is; the
  // points are spread evenly along the old chain. A chain already no longer than `len`,
  // or one of no length, is left alone.
  void keepTipEnd(double len);
};

}  // namespace zorvane
