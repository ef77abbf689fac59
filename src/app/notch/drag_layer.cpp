#include "app/notch/drag_layer.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

#include "core/goo/ink_tokens.h"
#include "core/goo/shapes.h"

namespace zorvane {

namespace {

constexpr double kPi = std::numbers::pi;

Point normalized(Point v, double least) {
  double length = std::max(v.length(), least);
  return {v.x / length, v.y / length};
}

}  // namespace

DragLayer::DragLayer(Surfaces& surfaces, MainQueue& queue, const Clock& clock, const Rect& screen)
    : surfaces_(surfaces), queue_(queue), clock_(clock), screen_(screen) {}

std::shared_ptr<DragLayer> DragLayer::make(Surfaces& surfaces, MainQueue& queue, const Clock& clock,
                                           const Rect& screen) {
  std::shared_ptr<DragLayer> layer(new DragLayer(surfaces, queue, clock, screen));
  layer->init();
  return layer;
}

DragLayer::~DragLayer() {
  if (hideTimer_) queue_.cancel(*hideTimer_);
}

void DragLayer::init() {
  // Hidden until a drag begins: a hidden panel draws nothing and its goo doesn't tick.
  panel_ = surfaces_.makePanel({"drag layer", PanelLevel::drag, true, false});
  panel_->setFrame(screen_);
  std::weak_ptr<DragLayer> weak = weak_from_this();
  panel_->setInk(kFrameRate, [weak](double t, Size) {
    auto self = weak.lock();
    return self ? self->scene(t) : Ink::glossyScene(9);
  });
}

void DragLayer::relayout(const Rect& screen) {
  // The rope and the springs keep their screen positions; local points follow the new
  // corner.
  Point shift = screen_.origin() - screen.origin();
  for (Point& p : points_) p = p + shift;
  for (Point& p : previous_) p = p + shift;
  if (dropped_) dropped_ = *dropped_ + shift;
  screen_ = screen;
  panel_->setFrame(screen_);
}

void DragLayer::begin(Mode mode, Point from) {
  if (hideTimer_) queue_.cancel(*std::exchange(hideTimer_, std::nullopt));
  mode_ = mode;
  origin_ = from;
  cursor = from;
  tip_.position = from;
  tip_.velocity = {};
  tip_.stiffness = 680;
  tip_.damping = 40;
  points_.assign(kRopePoints, local(from));
  previous_ = points_;
  retracting_.reset();
  lastTick_.reset();
  dropped_.reset();
  pinched_.reset();
  trail_.position = from;
  trail_.velocity = {};
  trail_.stiffness = 95;
  trail_.damping = 13;
  jiggle_ = jiggleV_ = lastSpeed_ = 0;
  dragging_ = true;
  panel_->orderFront();
}

void DragLayer::retract(bool keepTip) {
  if (!dragging_) return;
  retracting_ = Retraction{clock_.wallSeconds(), keepTip};
  dropped_ = keepTip ? std::optional<Point>(local(tip_.position)) : std::nullopt;
  if (hideTimer_) queue_.cancel(*hideTimer_);
  std::weak_ptr<DragLayer> weak = weak_from_this();
  hideTimer_ = queue_.after(kRetractSeconds + kHideGrace, [weak] {
    auto self = weak.lock();
    if (!self) return;
    self->hideTimer_.reset();
    if (!self->retracting_) return;
    self->dragging_ = false;
    self->panel_->orderOut();
  });
}

double DragLayer::frameStep(double t) {
  double dt = lastTick_ ? std::clamp(t - *lastTick_, 0.0, 1.0 / 30) : 1.0 / 120;
  lastTick_ = t;
  return dt;
}

double DragLayer::retraction(double t) const {
  if (!retracting_) return 0;
  return std::clamp((t - retracting_->start) / kRetractSeconds, 0.0, 1.0);
}

GooScene DragLayer::scene(double t) {
  if (points_.empty()) return Ink::glossyScene(9);  // no drag has begun yet
  return mode_ == Mode::tentacle ? armScene(t) : dropScene(t);
}

// --- The arm ---

void DragLayer::stepRope(double dt, double r) {
  double relax = 0;
  if (!retracting_) {
    tip_.step(cursor, dt);
  } else {
    tip_.stiffness = 520;
    tip_.damping = 34;
    tip_.step(origin_, dt);
    relax = r * 0.1;
  }
  size_t n = points_.size();
  Point o = local(origin_), x = local(tip_.position);
  double L = std::max((x - o).length(), 1.0);
  for (size_t i = 1; i + 1 < n; ++i) {
    Point p = points_[i], q = previous_[i];
    previous_[i] = p;
    points_[i] = p + (p - q) * 0.86;
    points_[i].y += dt * dt * 520;
  }
  points_.front() = o;
  points_.back() = x;
  double rest = (1.06 - relax) * L / double(n - 1);
  for (int pass = 0; pass < 14; ++pass) {
    for (size_t i = 0; i + 1 < n; ++i) {
      Point& a = points_[i];
      Point& b = points_[i + 1];
      Point delta = b - a;
      double d = std::max(delta.length(), 0.0001);
      Point c = delta * ((d - rest) / d);
      bool first = i == 0, last = i + 2 == n;
      if (first && last) continue;
      if (first) {
        b = b - c;
      } else if (last) {
        a = a + c;
      } else {
        a = a + c * 0.5;
        b = b - c * 0.5;
      }
    }
    points_.front() = o;
    points_.back() = x;
  }
}

GooScene DragLayer::armScene(double t) {
  GooScene scene = Ink::glossyScene(9);
  if (points_.empty()) return scene;
  double dt = frameStep(t);
  double r = retraction(t);
  stepRope(dt, r);
  scene.blend = 7;

  const size_t n = points_.size();
  const int segs = int(n) - 1;
  const double s = 0.62;
  double length = (points_.front() - points_.back()).length();
  double speed = tip_.velocity.length();
  double fade = 1 - r * r;
  double rootR = s * 13, tipR = s * 11;
  double midR = s * std::max(2340 / (length + 260), 3.0);
  double amp = s * (std::min(speed / 300, 5.0) + 3);

  auto normalAt = [this, n](size_t i) {
    Point tangent = normalized(points_[std::min(i + 1, n - 1)] - points_[i == 0 ? 0 : i - 1], 0.0001);
    return Point{-tangent.y, tangent.x};
  };
  std::vector<Point> P(n);
  for (size_t i = 0; i < n; ++i) {
    double u = double(i) / segs;
    P[i] = points_[i] + normalAt(i) * (amp * std::sin(u * kPi) * std::sin(u * 3.2 * kPi - 5.5 * t));
  }
  auto radius = [&](double u) {
    double x, from, to;
    if (u < 0.3) {
      x = u / 0.3;
      from = rootR;
      to = midR;
    } else {
      x = (u - 0.75) * 4;
      from = midR;
      to = 0.7 * tipR;
    }
    x = std::clamp(x, 0.0, 1.0);
    return std::max(fade * (from + (to - from) * x * x * (3 - 2 * x)), 1.0);
  };

  bool keepTip = retracting_ && retracting_->keepTip;
  int m = segs;
  if (keepTip && r > 0) m = std::max(int((1 - r) * segs), 1);

  for (int i = 0; i < m; ++i)
    scene.capsules.push_back({P[i], P[i + 1], radius(double(i) / segs), radius(double(i + 1) / segs), 0});
  for (double phase : {0.0, kPi}) {
    std::optional<Point> last;
    for (int j = 2; j <= m; ++j) {
      double u = double(j) / segs;
      Point q = P[j] + normalAt(j) * (std::sin(phase + u * 9 * kPi - 3 * t) * radius(u) * 0.85);
      if (last) scene.capsules.push_back({*last, q, fade * s * 1.8, fade * s * 1.8, 0});
      last = q;
    }
  }
  scene.blobs.push_back({points_.front(), std::max(fade, 0.4) * 9});

  double e = keepTip ? 1 - r : fade;
  if (e > 0.02) {
    Point T = keepTip && dropped_ ? *dropped_ : P[n - 1];
    scene.blobs.push_back({T, e * tipR});
    Point direction = speed >= 80 ? tip_.velocity : points_[n - 1] - points_[n - 3];
    double heading = std::atan2(direction.y, direction.x);
    double reach = std::min(speed / 120, 10.0);
    for (int i = 0; i < 5; ++i) {
      double a = heading + (i - 2) * 0.42 + std::sin(6 * t + i * 1.7) * 0.16;
      double g = i == 2 ? 1.25 : 1.0;
      double len = tipR + e * s * (reach + 8) * g * (std::sin(4 * t + i) * 0.15 + 0.85);
      Point way{std::cos(a), std::sin(a)};
      scene.capsules.push_back({T + way * (e * tipR * 0.5), T + way * len, e * s * 3.6, 0.5, 0});
    }
  }
  return scene;
}

// --- The droplet ---

GooScene DragLayer::dropScene(double t) {
  GooScene scene = Ink::glossyScene(8);
  double dt = frameStep(t);
  double r = retraction(t);

  if (!retracting_) {
    tip_.step(followsPointer ? surfaces_.pointer() : cursor, dt);
  } else if (!retracting_->keepTip) {
    tip_.stiffness = 420;
    tip_.damping = 30;
    tip_.step(origin_, dt);
  }
  trail_.step(tip_.position, dt);

  double speed = tip_.velocity.length();
  double accel = (speed - lastSpeed_) / std::max(dt, 0.001);
  lastSpeed_ = speed;
  jiggleV_ += dt * (-300 * jiggle_ - 10 * jiggleV_ - 0.00045 * accel);
  jiggle_ = std::clamp(jiggle_ + dt * jiggleV_, -0.35, 0.35);

  double k = 1;
  if (retracting_) k = retracting_->keepTip ? std::max(1 - 3 * r, 0.0) : std::max(1 - r * r, 0.0);
  double R = 14 * k * (1 + jiggle_ * 0.12);
  if (R <= 0.5) return scene;

  Point O = local(origin_), X = local(tip_.position);
  if (!pinched_) {
    double w = neckWidth((X - O).length(), 22, kSnapDistance);
    if (w == 0 && !retracting_) {
      pinched_ = Pinch{tip_.position, t};
    } else {
      scene.capsules.push_back({O, X, std::max(w * 0.5, 2.5), std::max(w * 0.4, 2.5), 0});
      scene.blobs.push_back({{O.x, O.y - 4}, 12});
    }
  }
  if (pinched_) {
    double p = (t - pinched_->time) / 0.32;
    if (p < 1) {
      Point M = (O + local(pinched_->point)) * 0.5;
      double h = (1 - p) * 5 + 1;
      scene.capsules.push_back({O, M + (O - M) * p, h, 1, 0});
      scene.capsules.push_back({X, M + (X - M) * p, h, 1, 0});
    }
  }

  double q = std::min(speed / 1500, 0.75);
  Point D = speed > 1 ? tip_.velocity * (1 / speed) : Point{0, 1};
  Point B = X - D * (R * q * 1.4);
  scene.capsules.push_back({X + D * (R * q * 0.5), B, R * (1 - 0.15 * q), R * (1 - 0.5 * q), 0});
  double heading = std::atan2(D.y, D.x);

  for (int i = 0; i < 6; ++i) {
    double a = t * 0.35 + (i / 6.0) * 2 * kPi + std::sin(t * 0.9 + i) * 0.4;
    if (speed > 60) a += std::min(speed / 1600, 0.7) * std::atan2(std::sin(heading - a), std::cos(heading - a));
    double facing = std::max(std::cos(a - heading), 0.0);
    double len = k * (std::sin(t * 2.6 + i * 1.7) * 7 + 10 + std::min(speed / 50, 26.0) * facing);
    if (len <= 2) continue;
    double wig = std::sin(t * 3.1 + i * 2.3) * 0.9;
    Point way{std::cos(a), std::sin(a)};
    Point last = X + way * (R * 0.6);
    for (int j = 1; j <= 6; ++j) {
      double b = a + wig * (j / 6.0);
      Point next = last + Point{std::cos(b), std::sin(b)} * (len / 6);
      if (j == 1) next = next + way * (R * 0.4);
      scene.capsules.push_back(
          {last, next, (1 - 0.55 * (j - 1) / 6.0) * 3.4 * k, (1 - 0.55 * j / 6.0) * 3.4 * k, 2});
      last = next;
    }
  }

  Point V = local(trail_.position);
  double trailing = (V - X).length();
  if (pinched_ && trailing > R * 0.5)
    scene.capsules.push_back({B, V, R * 0.55, std::max(R * 0.42 * std::min(60 / trailing, 1.0), 2.0), 0});
  return scene;
}

}  // namespace zorvane
