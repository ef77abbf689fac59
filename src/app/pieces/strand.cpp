#include "app/pieces/strand.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace zorvane {

namespace {

constexpr double kPi = std::numbers::pi;

// The lunge's reach follows its goal as a second-order system of 5 Hz, damping 0.62 and
// response -0.2 (it first winds back): k1 = ζ/(πf), k2 = 1/(2πf)², k3 = rζ/(2πf).
constexpr double kK1 = 0.03947042588679005;
constexpr double kK2 = 0.0010132118364233778;
constexpr double kK3 = -0.003947042588679004;

constexpr int kPasses = 5;

double distance(Point a, Point b) { return (b - a).length(); }

// Moves `a` and `b` apart or together by `c` (along b - a), shared by their weights.
void share(Point& a, Point& b, Point c, double wa, double wb) {
  double total = wa + wb;
  if (total <= 0) return;
  a = a + c * (wa / total);
  b = b - c * (wb / total);
}

}  // namespace

void Strand::step(double dt, double t) {
  if (dead || state == State::waiting) return;

  Point d = anchor - root;
  double D = d.length();
  Point goal = anchor;
  bool pinned = true;

  switch (state) {
    case State::waiting:
      return;
    case State::lunge: {
      double stable = std::max({kK2, dt * dt / 2 + dt * kK1 / 2, dt * kK1});
      double input = kick ? 1 + kK3 / dt : 1;
      kick = false;
      double oldSpeed = ud;
      u += dt * oldSpeed;
      ud += dt * (input - u - kK1 * oldSpeed) / stable;

      double L = std::max(D, 1.0);
      double bow = std::min(L * 0.22, 30.0) * std::sin(std::clamp(u, 0.0, 1.0) * kPi) * side * wig;
      goal = root + d * u + Point{-d.y / L, d.x / L} * bow;
      rest = std::max(D * std::max(u, 0.03), 4.0) * 1.03 / kSegments;
      if (u > 0.9 && std::abs(ud) < 1.4) state = State::held;
      break;
    }
    case State::held: {
      double total = rest * kSegments;
      rest = (total + (1 - std::exp(-5 * dt)) * (D * 1.02 - total)) / kSegments;
      break;
    }
    case State::recoil: {
      pinned = false;
      double len = std::max(length * std::exp(-11 * dt) - 150 * dt, 0.0);
      recoiled += dt;
      keepTipEnd(len);
      rest = len / kSegments;
      if (len < 6) {
        dead = true;
        return;
      }
      goal = anchor + d * (std::min(recoiled * 3, 1.0) * 26 / std::max(D, 1.0));
      break;
    }
  }

  // Integrate, with a travelling wave pushing sideways across the chord.
  Point chord = pos[kSegments] - pos[0];
  double M = std::max(chord.length(), 1.0);
  Point normal{-chord.y / M, chord.x / M};
  double push = state == State::lunge ? 260 : state == State::held ? 520 : 0;
  double keep = state == State::recoil ? 0.93 : 0.97;
  for (int i = 1; i < kPoints; ++i) {
    double v = double(i) / kSegments;
    Point p = pos[i];
    Point q = prev[i];
    prev[i] = p;
    double wave = std::sin(v * kPi) * std::sin(phase + v * 8.5 - t * 6.5);
    pos[i] = p + (p - q) * keep + normal * (dt * dt * push * wave);
  }

  double seg = std::max(rest, 0.05);
  double bend = seg * 1.65;
  for (int pass = 0; pass < kPasses; ++pass) {
    if (pinned) pos[0] = root;
    pos[kSegments] = goal;
    for (int i = 1; i < kPoints; ++i) {
      Point& a = pos[i - 1];
      Point& b = pos[i];
      double wa = i == 1 && pinned ? 0 : 1;
      double wb = i == kSegments ? 0 : 1;
      double dist = std::max(distance(a, b), 1e-6);
      share(a, b, (b - a) * (0.98 * (dist - seg) / dist), wa, wb);
    }
    for (int i = 2; i < kPoints; ++i) {
      Point& a = pos[i - 2];
      Point& b = pos[i];
      double dist = distance(a, b);
      if (dist >= bend) continue;
      double wa = i == 2 && pinned ? 0 : 1;
      double wb = i == kSegments ? 0 : 1;
      dist = std::max(dist, 1e-6);
      share(a, b, (b - a) * (0.35 * (dist - bend) / dist), wa, wb);
    }
  }

  length = 0;
  for (int i = 1; i < kPoints; ++i) length += distance(pos[i - 1], pos[i]);

  // Radii from the kept volume: a flare at the pinned root and a bulge at the tip.
  double base = std::clamp(std::sqrt(volume / (std::max(length, 2.0) * kPi)), 0.8, 6.0);
  for (int i = 0; i < kPoints; ++i) {
    double v = double(i) / kSegments;
    double r = base;
    if (pinned) r *= 1 + 0.9 * std::exp(-v / 0.1);
    r *= 1 + 0.55 * std::exp(-(1 - v) / 0.07);
    rad[i] = std::max(r, 0.6);
  }
}

void Strand::keepTipEnd(double len) {
  std::array<double, kPoints> cum{};
  for (int i = kSegments - 1; i >= 0; --i) cum[i] = cum[i + 1] + distance(pos[i], pos[i + 1]);
  if (cum[0] <= 0.001 || len >= cum[0]) return;

  std::array<Point, kPoints> oldPos = pos;
  std::array<Point, kPoints> oldPrev = prev;
  int i = kSegments;
  for (int k = kSegments; k >= 0; --k) {
    double target = len * (kSegments - k) / kSegments;
    while (i >= 2 && cum[i - 1] < target) --i;
    double w = std::clamp((target - cum[i]) / std::max(cum[i - 1] - cum[i], 1e-6), 0.0, 1.0);
    pos[k] = oldPos[i] + (oldPos[i - 1] - oldPos[i]) * w;
    prev[k] = oldPrev[i] + (oldPrev[i - 1] - oldPrev[i]) * w;
  }
}

}  // namespace zorvane
