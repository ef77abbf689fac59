// The pure functions that shape the goo: the neck of a piece being pulled away, the
// body's share of mass, a wavy tentacle, and the motion of each mood.
#pragma once

#include <vector>

#include "core/geometry/geometry.h"
#include "core/goo/blob.h"
#include "core/goo/mood.h"

namespace zorvane {

// Width of the neck joining a pulled piece to the body: `base` at rest, thinning as the
// piece moves away, 0 from `snapDistance` on.
double neckWidth(double distance, double base, double snapDistance);

// The share of the body's mass left with `livePieces` pieces out: 15 % less per piece,
// never below 40 %.
double notchMassScale(int livePieces);

namespace Shapes {

// A wavy strand of 28 capsules from `from` to `to`, tapering from radius 8 to 2.5 and
// swaying with time `t` (seconds). Each entry of `bulges` swells the strand at that
// position, measured from the `to` end (0) to the `from` end (1); every radius is
// multiplied by 1 + `flare`.
std::vector<GooCapsule> tentacle(Point from, Point to, double t, const std::vector<double>& bulges, double flare);

// The ripple, thorn and throb of `mood` at time `t` in seconds.
MoodParams moodParams(Mood mood, double t);

}  // namespace Shapes

}  // namespace zorvane
