// The round shapes the goo is made of: a circle and a tapered stroke between two round
// ends.
#pragma once

#include "core/geometry/geometry.h"

namespace zorvane {

struct Blob {
  Point center;
  double radius = 0;
};

struct GooCapsule {
  Point a, b;
  double ra = 0, rb = 0;
  // This capsule's own smooth-union radius; 0 or less means the scene's.
  double blend = 0;
};

}  // namespace zorvane
