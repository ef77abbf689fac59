#include "core/goo/shapes.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace zorvane {

double neckWidth(double distance, double base, double snapDistance) {
  if (distance >= snapDistance) return 0;
  return base * std::pow(1 - std::max(distance, 0.0) / snapDistance, 1.6);
}

double notchMassScale(int livePieces) { return std::max(1 - 0.15 * livePieces, 0.4); }

namespace Shapes {

std::vector<GooCapsule> tentacle(Point from, Point to, double t, const std::vector<double>& bulges, double flare) {
  constexpr int kSegments = 28;
  constexpr double pi = std::numbers::pi;
  Point delta = to - from;
  double length = std::max(delta.length(), 1.0);
  Point normal{-delta.y / length, delta.x / length};

  Point points[kSegments + 1];
  double radii[kSegments + 1];
  for (int i = 0; i <= kSegments; ++i) {
    double u = double(i) / kSegments;
    double offset = std::sin(u * pi) * 7 * std::sin(u * 4 * pi - 4 * t);
    points[i] = from + delta * u + normal * offset;
    double radius = 8 - 5.5 * u;
    for (double b : bulges) {
      double d = std::abs(1 - u - b);
      if (d < 0.07) radius += (1 - d / 0.07) * 5;
    }
    radii[i] = radius * (1 + flare);
  }

  std::vector<GooCapsule> capsules;
  capsules.reserve(kSegments);
  for (int i = 0; i < kSegments; ++i)
    capsules.push_back({points[i], points[i + 1], radii[i], radii[i + 1], i == 0 ? 6.0 : 2.5});
  return capsules;
}

MoodParams moodParams(Mood mood, double t) {
  double w = 2 * std::numbers::pi * t;
  switch (mood) {
    case Mood::idle:
      return {1.2, 5, 1 + 0.03 * std::sin(0.5 * w)};
    case Mood::working:
      return {2.0, 13 + 5 * std::sin(6 * w), 1};
    case Mood::needsApproval:
      return {1.5, 7, 1 + 0.14 * std::max(std::sin(1.2 * w), 0.0)};
  }
  return {};
}

}  // namespace Shapes

}  // namespace zorvane
