// TrayController: the small panel that hangs under the goo at the top of the screen when
// the pointer rests there. It shows the live pieces, offers to bring back the pieces of
// the last run and carries short messages. The application fills its model (TrayModel);
// the controller itself only decides when the panel shows and hides, and where it stands.
//
// Every 0.05 s `tick` reads the pointer: resting over the goo's band (widened by 10
// points left and right and 14 below) for more than 0.3 s shows the panel; once the
// pointer has been off both band and panel for more than 0.45 s, and no pin holds it
// (`pinFor`), the panel hides. A pull or long press on the goo, or `suppressed()`, hides
// it at once. Showing runs `refresh`, lays the panel out and lets its goo grow
// (TetherMotion); hiding draws the goo back, then orders the panel out.
//
//   auto tray = TrayController::make(queue, clock, surfaces, notch, std::move(panel));
//   tray->refresh = [this] { fillTheModel(tray->model()); tray->model().notify(); };
//   tray->pinFor(5);
//   tray->show();
//
// The model holds every text the view draws, so the view decides nothing.
// Main queue only; the timer and the motion's completions hold the controller weakly.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/notch/notch_controller.h"
#include "app/notch/tether_motion.h"
#include "core/base/clock.h"
#include "core/base/main_queue.h"
#include "core/base/uuid.h"
#include "core/goo/mood.h"
#include "core/registry/piece_snapshots.h"
#include "platform/surfaces.h"

namespace zorvane {

struct TrayModel {
  // A live piece, one row under "ON SCREEN".
  struct LiveRow {
    enum class Dot { orange, green, blue };

    UUID id;
    std::string name;
    Mood mood = Mood::idle;
    bool busy = false;
    std::string kind;  // the target's kind: "folder", "file", "browser tab", "app window"

    // Orange while it waits for an approval, else blue when busy and green when not.
    [[nodiscard]] Dot dot() const;
    // "needs you", "working", or nothing to say.
    [[nodiscard]] std::string caption() const;
    // The image of the kind: "folder", "doc", "globe" or "macwindow".
    [[nodiscard]] std::string image() const;

    friend bool operator==(const LiveRow&, const LiveRow&) = default;
  };

  static constexpr size_t kRestoreRowsShown = 4;

  std::vector<PieceSnapshot> restore;
  std::vector<LiveRow> live;
  std::optional<std::string> message;
  bool restoring = false;
  double notchWidth = 0;  // the goo's band, fixed when the tray is made
  std::function<void()> onChange;

  [[nodiscard]] bool hasContent() const { return !restore.empty() || !live.empty() || message.has_value(); }

  // The pill shown without content.
  static constexpr std::string_view emptyImage = "arrow.down";
  static constexpr std::string_view emptyText = "Pull down, drop on anything";
  // Above the live rows.
  static constexpr std::string_view liveHeading = "ON SCREEN";
  // The offer to restore.
  static constexpr std::string_view restoreImage = "sparkles";
  static constexpr std::string_view dismissTitle = "Not now";
  static constexpr std::string_view restoreTitle = "Bring them back";
  // "1 piece open when Zorvane closed", "3 pieces open when Zorvane closed".
  [[nodiscard]] std::string restoreHeading() const;
  // The names of the first four pieces to restore.
  [[nodiscard]] std::vector<std::string> restoreNames() const;
  // "+ 2 more" beyond the first four; nothing with four or fewer.
  [[nodiscard]] std::optional<std::string> restoreMore() const;

  // Tells the view that the fields changed.
  void notify() const {
    if (onChange) onChange();
  }
};

class TrayController : public std::enable_shared_from_this<TrayController> {
 public:
  static constexpr double kTickInterval = 0.05;
  static constexpr double kHoverSeconds = 0.3;    // resting over the band before it shows
  static constexpr double kOutsideSeconds = 0.45;  // away from band and panel before it hides
  static constexpr double kBandSideMargin = 10;
  static constexpr double kBandBelowMargin = 14;
  static constexpr double kPanelMargin = 6;
  static constexpr double kDefaultWidth = 380;   // without a view to measure
  static constexpr double kDefaultHeight = 120;  // when the view reports no height
  static constexpr double kCorner = 18;

  // `panel` is the tray's own (not key, at the notch's level); `surfaces`, `queue` and
  // `clock` must outlive the controller. The notch is held weakly.
  static std::shared_ptr<TrayController> make(MainQueue& queue, const Clock& clock, Surfaces& surfaces,
                                              const std::shared_ptr<NotchController>& notch,
                                              std::unique_ptr<GooPanel> panel);
  ~TrayController();
  TrayController(const TrayController&) = delete;
  TrayController& operator=(const TrayController&) = delete;

  // Set by the application.
  std::function<void()> refresh;           // fills the model; runs before showing
  std::function<bool()> suppressed;        // true: stay hidden (false while unset)
  std::function<void()> onRestoreAll;
  std::function<void()> onDismissRestore;
  std::function<void(const UUID&)> onFocusPiece;
  // Set by the view: the size its content wants, in points; nothing before it can tell.
  std::function<std::optional<Size>()> fittingSize;

  void tick();
  void show();
  void hide();
  // Centres the panel under the band, its top at the band's lower edge, sized to the
  // view's fitting size.
  void layout();
  // Keeps the panel up for `seconds` from now, whatever the pointer does.
  void pinFor(double seconds);

  // What the view's buttons and rows call.
  void restoreAll();
  void dismissRestore();
  void focusPiece(const UUID& id);

  [[nodiscard]] TrayModel& model() { return model_; }
  [[nodiscard]] const TrayModel& model() const { return model_; }
  [[nodiscard]] TetherMotion& motion() const { return *motion_; }
  [[nodiscard]] GooPanel& panel() { return *panel_; }
  [[nodiscard]] const GooPanel& panel() const { return *panel_; }
  [[nodiscard]] bool isPinned() const { return clock_.now() < pinnedUntil_; }

 private:
  TrayController(MainQueue& queue, const Clock& clock, Surfaces& surfaces,
                 const std::shared_ptr<NotchController>& notch, std::unique_ptr<GooPanel> panel);
  void start();

  MainQueue& queue_;
  const Clock& clock_;
  Surfaces& surfaces_;
  std::weak_ptr<NotchController> notch_;
  std::unique_ptr<GooPanel> panel_;
  std::shared_ptr<TetherMotion> motion_;
  TrayModel model_;
  std::optional<TimerID> timer_;
  std::optional<double> hoverSince_, outsideSince_;
  double pinnedUntil_ = 0;
};

}  // namespace zorvane
