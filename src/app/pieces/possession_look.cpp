#include "app/pieces/possession_look.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <numeric>

#include "core/goo/ink_tokens.h"

namespace zorvane {

namespace {

constexpr double kPi = std::numbers::pi;

// When a window's flood starts to draw back, in seconds of the animation after the bond;
// an icon's strands let go from then on and its fringe grows in.
constexpr double kSettle = 0.51;
constexpr double kFadeSeconds = PossessionLook::kRetireSeconds;
constexpr double kWipeSeconds = 0.4;

// How each mood moves the goo.
struct MoodMotion {
  double amp;           // fringe length
  double pulse;         // how much the cover swells
  double borderWidth;   // a window's border
  double borderWobble;  // and its liquid edge
  double fringeSpeed;   // how fast the fringe waves
};

MoodMotion motionFor(Mood mood, double t) {
  switch (mood) {
    case Mood::idle:
      return {3.5, 1 + 0.015 * std::sin(kPi * t), 5, 1.3, 1.3};
    case Mood::working:
      return {11, 1, 7.5, 2.4, 14 * kPi};
    case Mood::needsApproval:
      return {6, 1 + 0.14 * std::max(std::sin(2 * t * kPi * 1.2), 0.0), 5, 1.3, 1.3};
  }
  return {3.5, 1, 5, 1.3, 1.3};
}

double cube(double x) { return x * x * x; }

// A point on the rectangle's edge, `p` points along it clockwise from the top left
// corner, and the outward normal there.
void walkPerimeter(const Rect& rect, double p, Point& point, Point& normal) {
  if (p < rect.width) {
    point = {rect.minX() + p, rect.minY()};
    normal = {0, -1};
    return;
  }
  p -= rect.width;
  if (p < rect.height) {
    point = {rect.maxX(), rect.minY() + p};
    normal = {1, 0};
    return;
  }
  p -= rect.height;
  if (p < rect.width) {
    point = {rect.maxX() - p, rect.maxY()};
    normal = {0, 1};
    return;
  }
  p -= rect.width;
  point = {rect.minX(), rect.maxY() - std::min(p, rect.height)};
  normal = {-1, 0};
}

}  // namespace

PossessionLook::PossessionLook(std::shared_ptr<Anchor> anchor, Point dropPoint, double bondTime,
                               std::optional<uint64_t> seed)
    : anchor_(std::move(anchor)),
      bondTime_(bondTime),
      rng_(seed ? *seed : (uint64_t(std::random_device{}()) << 32) ^ std::random_device{}()) {
  Rect frame = anchor_->frame();
  dropOffset_ = {dropPoint.x - frame.minX(), dropPoint.y - frame.minY()};
}

Rect PossessionLook::cover() const {
  Rect frame = anchor_->frame();
  double w = frame.width, h = frame.height;
  Rect base{kMargin, kMargin, w, h};
  if (!anchor_->isIcon()) return base.grownBy(1);
  if (w > 2 * h) return {base.x - 3, base.y - 2, w + 6, h + 4};
  if (h > 1.12 * w) return Rect{kMargin, kMargin, w, w}.grownBy(4);
  return base.grownBy(4);
}

double PossessionLook::corner() const {
  if (!anchor_->isIcon()) return 12;
  Rect c = cover();
  double smaller = std::min(c.width, c.height);
  return c.width > 2 * c.height ? smaller * 0.5 : smaller * 0.26;
}

Point PossessionLook::knot() const {
  Rect c = cover();
  double e = anchor_->isIcon() ? 2 : 4;
  Rect frame = anchor_->frame();
  return {c.maxX() - e + frame.minX() - kMargin, c.minY() + e + frame.minY() - kMargin};
}

double PossessionLook::rayExit(Point from, double angle, const Rect& rect) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  double c = std::cos(angle), s = std::sin(angle);
  double tx = c > 0.0001 ? (rect.maxX() - from.x) / c : c < -0.0001 ? (rect.minX() - from.x) / c : kInfinity;
  double ty = s > 0.0001 ? (rect.maxY() - from.y) / s : s < -0.0001 ? (rect.minY() - from.y) / s : kInfinity;
  return std::max(std::min(tx, ty), 0.0);
}

double PossessionLook::random(double lo, double hi) {
  // Closed on both ends, as the jitter ranges are meant.
  return std::uniform_real_distribution<double>(lo, std::nextafter(hi, std::numeric_limits<double>::max()))(rng_);
}

std::vector<Strand> PossessionLook::makeStrands(const Rect& cover, Point start, bool icon) {
  int count = icon ? 5 : 7;
  std::vector<int> order(count);
  std::iota(order.begin(), order.end(), 0);
  std::shuffle(order.begin(), order.end(), rng_);

  std::vector<Strand> strands;
  strands.reserve(count);
  for (int i = 0; i < count; ++i) {
    Strand strand;
    double a = i * 2 * kPi / count + random(-0.35, 0.35);
    double reach = rayExit(start, a, cover);
    if (!icon) reach *= random(0.92, 1.0);
    reach = std::max(reach, 10.0);
    strand.root = start;
    strand.anchor = start + Point{std::cos(a), std::sin(a)} * reach;
    double r0 = icon ? 1.6 : random(2.4, 3.2);
    strand.delay = random(0, 0.09);
    strand.release = order[i] * 0.25 / count + random(0, 0.02);
    Point toAnchor = strand.anchor - strand.root;
    strand.volume = r0 * r0 * kPi * std::max(toAnchor.length(), 1.0);
    strand.side = random(0, 1) < 0.5 ? -1 : 1;
    strand.wig = random(0.5, 1.1);
    strand.phase = random(0, 100);
    Point direction = toAnchor * (1 / std::max(toAnchor.length(), 1.0));
    for (int k = 0; k < Strand::kPoints; ++k) {
      strand.pos[k] = strand.root + direction * (k * 0.4);
      strand.prev[k] = strand.pos[k];
      strand.rad[k] = r0;
    }
    strands.push_back(strand);
  }
  return strands;
}

GooScene PossessionLook::scene(double t) {
  bool icon = anchor_->isIcon();
  Rect c = cover();
  double e = (t - bondTime_) / Ink::Timing::slowMotion();
  Rect reach = c.grownBy(18);
  Point start{std::clamp(dropOffset_.x + kMargin, reach.minX(), reach.maxX()),
              std::clamp(dropOffset_.y + kMargin, reach.minY(), reach.maxY())};
  double farX = std::max(std::abs(start.x - c.minX()), std::abs(start.x - c.maxX()));
  double farY = std::max(std::abs(start.y - c.minY()), std::abs(start.y - c.maxY()));
  double R = std::hypot(farX, farY) + 14;
  MoodMotion motion = motionFor(mood, t);

  // Retreat: `away` is how long the flood has been drawing back, `fade` how far the
  // retired look has faded.
  std::optional<double> away;
  double fade = 0;
  double age = 0;
  if (retireStart) {
    double retire = (*retireStart - bondTime_) / Ink::Timing::slowMotion();
    age = e - retire;
    fade = std::min(age / kFadeSeconds, 1.0);
    away = icon ? age : e - std::min(retire, kSettle);
  } else if (!icon) {
    away = e - kSettle;
  }
  if (retireStart && age > kFadeSeconds && away && *away > 1) return Ink::glossyScene(9);

  GooScene scene = Ink::glossyScene(16);

  // Growth of the flood from the drop point.
  double x = std::clamp((e - 0.18) / 0.28, 0.0, 1.0);
  double rise = cube(1 - x);
  double wobble = rise * 28 + 1.4;

  // The wipe: a hole from the drop point that eats the flood.
  double g = 0;
  if (away) {
    double q = std::clamp(*away / kWipeSeconds, 0.0, 1.0);
    g = q < 0.5 ? 4 * cube(q) : 1 - cube(2 - 2 * q) / 2;
  }
  double holeR = (R + 30) * g;
  bool hole = g > 0;
  if (hole) wobble = std::sin(g * kPi) * 26 + 2;

  Rect fill = c.grownBy((motion.pulse - 1) * 14);
  double cornerRadius = corner();

  if (holeR < R + 24) {
    InkBox flood;
    flood.rect = fill;
    flood.corner = cornerRadius;
    flood.reveal = InkBox::Reveal{start, (R - 6) * (1 - rise) + 6};
    if (hole) flood.hole = holeR;
    flood.wobble = wobble;
    scene.boxes.push_back(flood);
  }

  double borderWidth = motion.borderWidth * (1 - fade);
  if (!icon && borderWidth > 0.6) {
    InkBox border;
    border.rect = fill;
    border.corner = cornerRadius;
    border.ring = borderWidth;
    border.wobble = motion.borderWobble;
    scene.boxes.push_back(border);
  }

  double y = std::clamp(e / 0.22, 0.0, 1.0);
  double coreGrowth = icon ? 2 : 14;
  double coreRadius = (1 - fade) * (1 - g) * (coreGrowth * (1 - cube(1 - y)) + 14);
  if (coreRadius > 0.5) scene.blobs.push_back({start, coreRadius});

  if (strands_.empty()) strands_ = makeStrands(c, start, icon);

  // The strands run on a clock of their own: 240 steps a second, at most 8 a frame.
  double dt = 1.0 / 60;
  if (lastSim_) dt = std::clamp((t - *lastSim_) / Ink::Timing::slowMotion(), 0.0, 1.0 / 30);
  lastSim_ = t;
  int n = std::max(int(dt * 240), 1);

  for (Strand& strand : strands_) {
    if (strand.dead) continue;
    if (strand.delay <= e && strand.state == Strand::State::waiting) strand.state = Strand::State::lunge;
    bool letGo = icon ? strand.release * 0.5 + kSettle < e : away && strand.release <= *away;
    if (letGo && (strand.state == Strand::State::lunge || strand.state == Strand::State::held))
      strand.state = Strand::State::recoil;
    if (strand.state == Strand::State::waiting) continue;
    if (dt > 0)
      for (int k = 1; k <= n; ++k) strand.step(dt / n, t - dt + k * dt / n);
    if (strand.dead) continue;
    for (int i = 0; i < Strand::kSegments; ++i)
      scene.capsules.push_back(
          {strand.pos[i], strand.pos[i + 1], strand.rad[i], strand.rad[i + 1], i == 0 ? 6.0 : 2.5});
  }

  if (icon) {
    double z = std::clamp((e - kSettle) * 4, 0.0, 1.0);
    double f = (1 - g) * (1 - fade) * (1 - cube(1 - z));
    if (f > 0.01) {
      double perimeter = 2 * (fill.width + fill.height);
      for (int i = 0; i < 12; ++i) {
        double turn = t * 0.006 + i / 12.0;
        Point point, normal;
        walkPerimeter(fill, (turn - std::floor(turn)) * perimeter, point, normal);
        double len = motion.amp * f * (std::sin(i * 2.7 + t * motion.fringeSpeed) * 0.4 + 0.6);
        if (len > 0.6) scene.capsules.push_back({point - normal * 2, point + normal * len, 3.2, 0.4, 0});
      }
    }
  }

  if (ripple) scene.ripple = GooScene::Ripple{{c.x + c.width / 2, c.y + c.height / 2}, *ripple};
  return scene;
}

}  // namespace zorvane
