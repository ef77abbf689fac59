// How the creature feels, and the three numbers each mood gives its motion.
#pragma once

namespace zorvane {

enum class Mood { idle, working, needsApproval };

struct MoodParams {
  double ripple = 0;  // strength of the surface ripple
  double thorn = 0;   // length of the spikes
  double throb = 1;   // size factor of a pulsing orb (a piece's orb has radius 9 × throb)
};

}  // namespace zorvane
