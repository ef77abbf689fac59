#include "core/goo/spring.h"

namespace zorvane {

void Spring::step(Point toward, double dt) {
  Point acceleration = (toward - position) * stiffness - velocity * damping;
  velocity = velocity + acceleration * dt;
  position = position + velocity * dt;
}

}  // namespace zorvane
