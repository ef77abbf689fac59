#include "app/notch/notch_controller.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

#include "core/base/log.h"
#include "core/goo/ink_tokens.h"

namespace zorvane {

namespace {

constexpr double kPi = std::numbers::pi;
constexpr double kNotchWidth = 140, kNotchHeight = 26;
constexpr double kSide = 80;  // the panel's room for the goo left, right and below the band
constexpr double kDripLife = 2.4;

std::string describe(const Rect& r) {
  auto number = [](double v) {
    std::string text = std::to_string(v);
    text.erase(text.find_last_not_of('0') + 1);
    if (text.ends_with('.')) text.pop_back();
    return text;
  };
  return "(" + number(r.x) + ", " + number(r.y) + ", " + number(r.width) + ", " + number(r.height) + ")";
}

}  // namespace

NotchController::NotchController(Surfaces& surfaces, MainQueue& queue, const Clock& clock, uint64_t seed)
    : surfaces_(surfaces), queue_(queue), clock_(clock), random_(seed) {}

std::shared_ptr<NotchController> NotchController::make(Surfaces& surfaces, MainQueue& queue, const Clock& clock,
                                                       const ScreenInfo& screen, uint64_t seed) {
  std::shared_ptr<NotchController> notch(new NotchController(surfaces, queue, clock, seed));
  notch->init(screen);
  return notch;
}

NotchController::~NotchController() {
  cancelPressTimer();
  if (mouseTimer_) queue_.cancel(*mouseTimer_);
}

NotchController::Geometry NotchController::geometry(const ScreenInfo& screen) {
  // No desktop here reports a notch: the band hangs at the top centre, from the top of
  // the work area.
  Rect notch{screen.frame.x + screen.frame.width / 2 - kNotchWidth / 2, screen.visibleFrame.minY(), kNotchWidth,
             kNotchHeight};
  Rect frame{notch.x - kSide, notch.y, notch.width + 2 * kSide, notch.height + kSide};
  return {notch, frame, false};
}

void NotchController::init(const ScreenInfo& screen) {
  lastDrip_ = clock_.wallSeconds();
  nextDripAfter_ = uniform(4.0, 7.0);
  Geometry g = geometry(screen);
  hasNotch_ = g.real;
  notch_ = g.notch;
  magnetX_ = notch_.width / 2 + kSide;
  pointer_ = {notch_.x + notch_.width / 2, notch_.y - 10000};

  // Click-through until the poll finds the pointer near the body.
  panel_ = surfaces_.makePanel({"Zorvane", PanelLevel::notch, true, false});
  panel_->setFrame(g.frame);
  std::weak_ptr<NotchController> weak = weak_from_this();
  panel_->setInk(rate_, [weak](double t, Size size) {
    auto self = weak.lock();
    return self ? self->scene(t, size) : GooScene{};
  });
  panel_->setPointerHandlers({
      [weak](Point p) {
        if (auto self = weak.lock()) self->pointerDown(p);
      },
      [weak](Point p) {
        if (auto self = weak.lock()) self->pointerDrag(p);
      },
      [weak](Point p, bool moved) {
        if (auto self = weak.lock()) self->pointerUp(p, moved);
      },
  });
  panel_->orderFront();
  mouseTimer_ = queue_.every(kPointerPollInterval, [weak] {
    if (auto self = weak.lock()) self->pollPointer();
  });
}

void NotchController::relayout(const ScreenInfo& screen) {
  Geometry g = geometry(screen);
  hasNotch_ = g.real;
  notch_ = g.notch;
  panel_->setFrame(g.frame);
  Log::info("notch relayout: " + describe(notch_) + " real=" + (g.real ? "true" : "false"));
}

double NotchController::uniform(double lo, double hi) {
  return std::uniform_real_distribution<double>(lo, hi)(random_);
}

void NotchController::setRate(int rate) {
  if (rate == rate_) return;
  rate_ = rate;
  panel_->setInkRate(rate);
}

// --- The gesture ---

void NotchController::cancelPressTimer() {
  if (pressTimer_) queue_.cancel(*std::exchange(pressTimer_, std::nullopt));
}

void NotchController::pointerDown(Point p) {
  pulling_ = true;
  poke_ = clock_.wallSeconds();
  pressStart_ = p;
  pointer_ = p;
  longPressed_ = false;
  panel_->setClickThrough(false);
  setRate(kPullRate);
  cancelPressTimer();
  std::weak_ptr<NotchController> weak = weak_from_this();
  pressTimer_ = queue_.after(kLongPressSeconds, [weak] {
    auto self = weak.lock();
    if (!self) return;
    self->pressTimer_.reset();
    if (!self->pulling_) return;
    self->longPressed_ = true;
    self->pulling_ = false;
    self->poke_ = self->clock_.wallSeconds();
    if (self->onLongPress) self->onLongPress();
  });
  if (onPull) onPull(p);
}

void NotchController::pointerDrag(Point p) {
  if (longPressed_) return;
  pointer_ = p;
  // Moving more than a few points makes it a pull for good, never a long press.
  if (pressStart_ && (p - *pressStart_).length() > kLongPressSlop) cancelPressTimer();
  if (onPullDrag) onPullDrag(p);
}

void NotchController::pointerUp(Point p, bool moved) {
  cancelPressTimer();
  pulling_ = false;
  pressStart_.reset();
  if (longPressed_) {
    longPressed_ = false;
    if (onLongPressEnd) onLongPressEnd();
    return;
  }
  if (onPullEnd) onPullEnd(p);
  if (!moved && onTap) onTap();
}

void NotchController::pollPointer() {
  if (pulling_ || longPressed_) {
    panel_->setClickThrough(false);
    return;
  }
  pointer_ = surfaces_.pointer();
  Rect live{notch_.minX() - 10, notch_.minY(), notch_.width + 20, notch_.height + 14};
  bool takes = live.contains(pointer_);
  // The panel only changes its input shape when this flips.
  if (takes == panel_->options().clickThrough) panel_->setClickThrough(!takes);
}

// --- The frame ---

GooScene NotchController::scene(double t, Size size) {
  double dt = lastTick_ ? std::min(t - *lastTick_, 1.0 / 30) : 1.0 / 120;
  dt = std::max(dt, 0.0);
  lastTick_ = t;

  double W = size.width - 2 * kSide, H = size.height - kSide;
  NotchActivity act = activity ? activity() : NotchActivity{};
  std::optional<float> voice = voiceLevel ? voiceLevel() : std::nullopt;

  // The pointer in the panel's terms: the live one during a gesture, else the last poll.
  double mx = pointer_.x - (notch_.minX() - kSide);
  double my = pointer_.y - notch_.minY();
  double cx = std::clamp(mx, 88.0, std::max(88.0, W + 72));
  double cy = std::min(my, H);
  double dist = std::hypot(mx - cx, my - cy);

  double near;
  if (pulling_) {
    near = 0.35;
  } else {
    double x = std::clamp(1 - dist / kReach, 0.0, 1.0);
    near = x * x * (3 - 2 * x);
  }
  double attract = voice ? std::max(near, double(*voice) * 0.55 + 0.45) : near;
  double goal = act.working >= 1 && attract <= 0.3 ? 0.3 : attract;
  double rate = goal > magnet_ ? 7.0 : 3.5;
  magnet_ += (goal - magnet_) * std::min(dt * rate, 1.0);
  double xGoal = W * 0.5 + kSide;
  if (!voice && (dist <= kReach || act.working < 1)) xGoal = cx;
  magnetX_ += (xGoal - magnetX_) * std::min(dt * 10, 1.0);

  double pokeFade = std::max(0.0, 1 - (t - poke_) / 0.35);
  double shrink = std::max(1 - livePieces * 0.15, 0.4);
  double pulse = act.waiting >= 1 ? 2.5 * std::max(0.0, std::sin(2 * t * kPi * 1.2)) : 0;
  double hang = pokeFade * 3 + std::sin(t * 1.3) * 1.2 + pulse + shrink * (magnet_ * 4 + 6);
  double bottom = H + hang;

  GooScene scene = Ink::glossyScene(8.0);
  scene.shadow = false;
  scene.voidColor = Ink::Surface::notchVoid;
  InkBox body;
  body.rect = {77, -24, W + 6, H + 24 + hang};
  body.corner = 13;
  body.wobble = 2.2;
  scene.boxes.push_back(body);

  if (magnet_ > 0.01) {
    double speed = act.working >= 1 ? 7.0 : 1.4;
    double reach = voice ? 1.0 : std::max(8.0, my - (bottom - 1));
    for (int i = 0; i <= 10; ++i) {
      double x = (W - 20) * ((i + 0.5) / 11) + 90;
      double spread = (x - magnetX_) / (W * 0.42);
      double falloff = voice ? 1.0 : std::exp(-spread * spread);
      double wave = std::sin(2 * t * speed * kPi / 1.4 + i * 2.3);
      double len = shrink * (wave * 0.18 + 0.82) * falloff * magnet_ * 24;
      if (len <= 0.8) continue;
      double dx = voice ? 0.0 : mx - x;
      double d = std::max(std::hypot(dx, reach), 1.0);
      double ux = dx / d * 0.55, uy = reach / d * 0.55 + 0.45;
      double n = std::hypot(ux, uy);
      scene.capsules.push_back({{x, bottom - 3}, {x + len * ux / n, bottom - 1 + len * uy / n}, 4.2, 0.35, 0});
    }
    scene.blobs.push_back({{magnetX_, bottom + magnet_ * 4 - 3}, magnet_ * 5 + 5});
  }

  // A drip when the goo is left alone long enough. The wait is drawn once per drip, so
  // drips come every 4 to 7 seconds whatever the frame rate.
  if (t - lastDrip_ > nextDripAfter_ && magnet_ < 0.2) {
    lastDrip_ = t;
    nextDripAfter_ = uniform(4.0, 7.0);
    drips_.push_back({t, W * uniform(0.25, 0.75) + kSide});
  }
  std::erase_if(drips_, [t](const Drip& drip) { return t - drip.start > kDripLife || t < drip.start; });
  for (const Drip& drip : drips_) {
    double a = (t - drip.start) / kDripLife;
    double grow = a < 0.6 ? a / 0.6 : 1 - (a - 0.6) / 0.4;
    scene.capsules.push_back(
        {{drip.x, bottom - 3}, {drip.x, bottom + shrink * grow * 16}, 4.5, shrink * 4 * (1 - a * 0.3), 0});
  }

  int want = kRestRate;
  if (pulling_ || longPressed_) {
    want = kPullRate;
  } else if (magnet_ > 0.01 || goal > 0.01 || act.waiting >= 1 || voice || pokeFade > 0) {
    want = kActiveRate;
  } else if (!drips_.empty()) {
    want = kDripRate;
  }
  setRate(want);
  return scene;
}

}  // namespace zorvane
