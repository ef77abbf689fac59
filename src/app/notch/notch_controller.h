// NotchController: the goo that lives at the top of the screen. One panel, a band of
// body hanging from the top of the work area, drawn anew for every frame from the clock,
// the pointer and what the pieces are doing: it breathes, drips now and then, reaches
// for a pointer that comes near, pulls toward a speaking voice, pumps while an approval
// waits and narrows as more pieces are out in the world.
//
// The same panel takes the user's gestures and hands them on: a press is always the
// start of a pull (`onPull`); it ends as a pull (`onPullEnd`, plus `onTap` when the
// pointer never moved), or, held 0.45 s without moving, as a long press (`onLongPress`
// then `onLongPressEnd`). The panel is wider than the body so the goo can reach out;
// a 1/30 s poll of the pointer lets clicks through everywhere but near the body.
//
// There is no notch on this desktop: the body is a 140 × 26 band at the top centre of
// the primary screen, hanging from the top of its work area so a top panel never hides
// it. All positions are screen coordinates (X11 root pixels, top-left origin); the
// scene's are the panel's own, with x = 80 the band's left edge and y = 0 its top.
//
//   auto notch = NotchController::make(surfaces, queue, clock, primaryScreen);
//   notch->onPull = [](Point p) { ... };
//   notch->activity = [] { return NotchActivity{live, working, waiting}; };
//
// Main queue only; the panel's frame callback and timers hold the controller weakly.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <vector>

#include "core/base/clock.h"
#include "core/base/main_queue.h"
#include "core/ink/goo_scene.h"
#include "platform/surfaces.h"

namespace zorvane {

struct NotchActivity {
  int live = 0;     // pieces that exist
  int working = 0;  // pieces whose agent is busy
  int waiting = 0;  // pieces waiting for an approval
};

class NotchController : public std::enable_shared_from_this<NotchController> {
 public:
  struct Geometry {
    Rect notch;  // the band, screen coordinates
    Rect frame;  // the panel: the band grown by 80 left, right and down
    bool real = false;
  };

  static constexpr double kLongPressSeconds = 0.45;
  static constexpr double kLongPressSlop = 6.0;
  static constexpr double kPointerPollInterval = 1.0 / 30;
  static constexpr double kReach = 170;  // how far the goo feels the pointer
  // Frame rates. A pull moves the goo hundreds of points a second, so it runs at 120.
  // The pointer near the body, busy or waiting pieces and a voice move the fringe and
  // pump the body by a few points a second: 60. At rest the body breathes by ±1.2 points
  // (at most 1.6 points a second) and the shader's sheen drifts slower still: at 20
  // frames a second a frame moves it by less than a tenth of a point, which
  // antialiasing shows the same as 120, for a sixth of the work. Drips grow and fall at
  // up to 17 points a second: 30 keeps each step near half a point.
  static constexpr int kPullRate = 120;
  static constexpr int kActiveRate = 60;
  static constexpr int kDripRate = 30;
  static constexpr int kRestRate = 20;

  static std::shared_ptr<NotchController> make(Surfaces& surfaces, MainQueue& queue, const Clock& clock,
                                               const ScreenInfo& screen, uint64_t seed = std::random_device{}());
  ~NotchController();
  NotchController(const NotchController&) = delete;
  NotchController& operator=(const NotchController&) = delete;

  static Geometry geometry(const ScreenInfo& screen);

  // Set by the application.
  int livePieces = 0;
  std::function<NotchActivity()> activity;
  std::function<std::optional<float>()> voiceLevel;  // 0...1 while a voice listens
  std::function<void(Point)> onPull;
  std::function<void(Point)> onPullDrag;
  std::function<void(Point)> onPullEnd;
  std::function<void()> onLongPress;
  std::function<void()> onLongPressEnd;
  std::function<void()> onTap;

  // Moves the body to another screen, or to the same one after it changed.
  void relayout(const ScreenInfo& screen);
  // The frame at `t` (seconds since 1970) for a view of `size` points.
  GooScene scene(double t, Size size);

  // The gesture, as the panel reports it (screen coordinates).
  void pointerDown(Point p);
  void pointerDrag(Point p);
  void pointerUp(Point p, bool moved);
  // The hit-area poll: takes the pointer only near the body or during a gesture.
  void pollPointer();

  [[nodiscard]] const Rect& notchRect() const { return notch_; }
  [[nodiscard]] bool hasNotch() const { return hasNotch_; }
  [[nodiscard]] const GooPanel& panel() const { return *panel_; }
  [[nodiscard]] bool isPulling() const { return pulling_; }
  [[nodiscard]] bool isLongPressed() const { return longPressed_; }
  [[nodiscard]] double magnet() const { return magnet_; }
  [[nodiscard]] double magnetX() const { return magnetX_; }
  [[nodiscard]] int frameRate() const { return rate_; }
  [[nodiscard]] size_t dripCount() const { return drips_.size(); }

 private:
  struct Drip {
    double start = 0;
    double x = 0;
  };

  NotchController(Surfaces& surfaces, MainQueue& queue, const Clock& clock, uint64_t seed);
  void init(const ScreenInfo& screen);
  void cancelPressTimer();
  void setRate(int rate);
  double uniform(double lo, double hi);

  Surfaces& surfaces_;
  MainQueue& queue_;
  const Clock& clock_;
  std::unique_ptr<GooPanel> panel_;
  Rect notch_;
  bool hasNotch_ = false;
  std::optional<TimerID> pressTimer_, mouseTimer_;
  std::optional<Point> pressStart_;
  bool longPressed_ = false;
  bool pulling_ = false;
  std::vector<Drip> drips_;
  double lastDrip_ = 0;
  double nextDripAfter_ = 0;  // the random wait drawn for the next drip
  std::optional<double> lastTick_;
  double poke_ = 0;
  double magnet_ = 0;
  double magnetX_ = 0;
  Point pointer_;  // the last polled pointer, or the gesture's
  int rate_ = kRestRate;
  std::mt19937_64 random_;
};

}  // namespace zorvane
