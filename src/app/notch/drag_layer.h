// DragLayer: the goo being dragged across the screen, over every window. One full-screen
// click-through panel on the screen of the notch, shown only while a drag runs, drawing
// one of two things:
//
//   pull      a droplet pulled off the notch: a neck stretches from the origin and
//             pinches off at 95 points; then a blob with six waving lobes hangs behind
//             the pointer and rings when it speeds up or brakes.
//   tentacle  an arm grown from a piece's knot toward the pointer: a 22-point rope
//             solved by Verlet integration, two strands wound round it, a five-fingered
//             claw at its tip.
//
// The layer knows nothing of pieces or targets: the application calls `begin`, writes
// `cursor` on every pointer event and calls `retract`; it reads `tip`, `origin`, `mode`
// and `pinched` to judge whether the drag went far enough. `retract(keepTip: true)`
// leaves the tip where it stands, for a new piece to take over that place.
//
// Points are screen coordinates; scenes are built in the panel's own (the screen point
// minus the screen's top-left corner). Everything but the springs, the rope and a few
// numbers is built anew for every frame. Main queue only.
#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "core/base/clock.h"
#include "core/base/main_queue.h"
#include "core/goo/spring.h"
#include "core/ink/goo_scene.h"
#include "platform/surfaces.h"

namespace zorvane {

class DragLayer : public std::enable_shared_from_this<DragLayer> {
 public:
  enum class Mode { pull, tentacle };

  struct Pinch {
    Point point;  // screen coordinates
    double time = 0;
  };
  struct Retraction {
    double start = 0;  // seconds since 1970
    bool keepTip = false;
  };

  static constexpr int kRopePoints = 22;
  static constexpr double kRetractSeconds = 0.45;
  static constexpr double kHideGrace = 0.05;
  static constexpr double kSnapDistance = 95;
  static constexpr int kFrameRate = 120;

  static std::shared_ptr<DragLayer> make(Surfaces& surfaces, MainQueue& queue, const Clock& clock,
                                         const Rect& screen);
  ~DragLayer();
  DragLayer(const DragLayer&) = delete;
  DragLayer& operator=(const DragLayer&) = delete;

  // Starts a drag at `from`, and shows the panel.
  void begin(Mode mode, Point from);
  // Ends the drag: the goo goes home (or, with `keepTip`, the tip stays), and the panel
  // hides 0.5 s later unless a new drag began meanwhile.
  void retract(bool keepTip);
  // Follows a screen that moved or changed its size.
  void relayout(const Rect& screen);
  // The frame at `t` (seconds since 1970): the arm in tentacle mode, else the droplet.
  GooScene scene(double t);

  // Where the caller last put the drag (screen coordinates).
  Point cursor;
  // The droplet's tip chases the live pointer rather than `cursor`.
  bool followsPointer = false;

  [[nodiscard]] Mode mode() const { return mode_; }
  [[nodiscard]] Point origin() const { return origin_; }
  [[nodiscard]] const Spring& tip() const { return tip_; }
  [[nodiscard]] const std::optional<Pinch>& pinched() const { return pinched_; }
  [[nodiscard]] const std::optional<Retraction>& retracting() const { return retracting_; }
  [[nodiscard]] bool isDragging() const { return dragging_ && !retracting_; }
  [[nodiscard]] const GooPanel& panel() const { return *panel_; }
  [[nodiscard]] const Rect& screen() const { return screen_; }
  [[nodiscard]] const std::vector<Point>& rope() const { return points_; }

 private:
  DragLayer(Surfaces& surfaces, MainQueue& queue, const Clock& clock, const Rect& screen);
  void init();
  Point local(Point p) const { return p - screen_.origin(); }
  double frameStep(double t);
  double retraction(double t) const;
  void stepRope(double dt, double r);
  GooScene armScene(double t);
  GooScene dropScene(double t);

  Surfaces& surfaces_;
  MainQueue& queue_;
  const Clock& clock_;
  std::unique_ptr<GooPanel> panel_;
  Rect screen_;
  Mode mode_ = Mode::pull;
  Point origin_;
  Spring tip_;
  std::vector<Point> points_, previous_;
  std::optional<double> lastTick_;
  std::optional<Retraction> retracting_;
  std::optional<Point> dropped_;  // local
  Spring trail_;
  std::optional<Pinch> pinched_;
  double jiggle_ = 0, jiggleV_ = 0, lastSpeed_ = 0;
  bool dragging_ = false;
  std::optional<TimerID> hideTimer_;
};

}  // namespace zorvane
