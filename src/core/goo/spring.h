// A damped spring that pulls one point toward a moving target, stepped once per frame.
#pragma once

#include "core/geometry/geometry.h"

namespace zorvane {

struct Spring {
  Point position;
  Point velocity;  // points per second
  double stiffness = 180;
  double damping = 22;

  Spring() = default;
  explicit Spring(Point start) : position(start) {}

  // One semi-implicit Euler step of `dt` seconds toward `toward`: the velocity takes
  // the acceleration first, the position then moves with the new velocity.
  void step(Point toward, double dt);
};

}  // namespace zorvane
