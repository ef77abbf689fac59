#include "app/notch/tray_controller.h"

#include <algorithm>

#include "app/notch/tether_ink.h"

namespace zorvane {

// --- The model's texts ---

TrayModel::LiveRow::Dot TrayModel::LiveRow::dot() const {
  if (mood == Mood::needsApproval) return Dot::orange;
  return busy ? Dot::blue : Dot::green;
}

std::string TrayModel::LiveRow::caption() const {
  if (mood == Mood::needsApproval) return "needs you";
  return busy ? "working" : "";
}

std::string TrayModel::LiveRow::image() const {
  if (kind == "folder") return "folder";
  if (kind == "file") return "doc";
  if (kind == "browser tab") return "globe";
  return "macwindow";
}

std::string TrayModel::restoreHeading() const {
  std::string count = restore.size() == 1 ? "1 piece" : std::to_string(restore.size()) + " pieces";
  return count + " open when Zorvane closed";
}

std::vector<std::string> TrayModel::restoreNames() const {
  std::vector<std::string> names;
  for (size_t i = 0; i < restore.size() && i < kRestoreRowsShown; ++i) names.push_back(restore[i].displayName);
  return names;
}

std::optional<std::string> TrayModel::restoreMore() const {
  if (restore.size() <= kRestoreRowsShown) return std::nullopt;
  return "+ " + std::to_string(restore.size() - kRestoreRowsShown) + " more";
}

// --- The controller ---

TrayController::TrayController(MainQueue& queue, const Clock& clock, Surfaces& surfaces,
                               const std::shared_ptr<NotchController>& notch, std::unique_ptr<GooPanel> panel)
    : queue_(queue),
      clock_(clock),
      surfaces_(surfaces),
      notch_(notch),
      panel_(std::move(panel)),
      motion_(TetherMotion::make(queue, clock)) {
  if (notch) model_.notchWidth = notch->notchRect().width;
}

std::shared_ptr<TrayController> TrayController::make(MainQueue& queue, const Clock& clock, Surfaces& surfaces,
                                                     const std::shared_ptr<NotchController>& notch,
                                                     std::unique_ptr<GooPanel> panel) {
  std::shared_ptr<TrayController> tray(new TrayController(queue, clock, surfaces, notch, std::move(panel)));
  tray->start();
  return tray;
}

TrayController::~TrayController() {
  if (timer_) queue_.cancel(*timer_);
}

void TrayController::start() {
  std::weak_ptr<TrayController> weak = weak_from_this();
  // The card's goo: a stem from the band and the card out of its knob, coming and going
  // with the motion; a small pill while there is nothing to show.
  panel_->setInk(TetherInk::kFramesPerSecond, [weak](double t, Size size) {
    auto self = weak.lock();
    if (!self) return GooScene{};
    return TetherInk::scene(t, size, kCorner, !self->model_.hasContent(), self->motion_.get());
  });
  timer_ = queue_.every(kTickInterval, [weak] {
    if (auto self = weak.lock()) self->tick();
  });
}

void TrayController::tick() {
  auto notch = notch_.lock();
  if (!notch) return;
  double now = clock_.now();
  if (notch->isPulling() || notch->isLongPressed() || (suppressed && suppressed())) {
    hoverSince_.reset();
    hide();
    return;
  }
  Point mouse = surfaces_.pointer();
  Rect band = notch->notchRect();
  Rect hot{band.x - kBandSideMargin, band.y, band.width + 2 * kBandSideMargin, band.height + kBandBelowMargin};
  bool overNotch = hot.contains(mouse);
  bool overPanel = panel_->isVisible() && panel_->frame().grownBy(kPanelMargin).contains(mouse);

  if (overNotch) {
    if (!hoverSince_) hoverSince_ = now;
    if (now - *hoverSince_ > kHoverSeconds) show();
  } else {
    hoverSince_.reset();
  }

  if (!panel_->isVisible()) return;
  // While it is up the rows follow the pieces (a mood, a finished task); the refresh
  // tells the view only what changed.
  if (refresh) refresh();
  layout();
  if (overNotch || overPanel || now < pinnedUntil_) {
    outsideSince_.reset();
    return;
  }
  if (!outsideSince_) outsideSince_ = now;
  if (now - *outsideSince_ > kOutsideSeconds) hide();
}

void TrayController::show() {
  if (refresh) refresh();
  layout();
  outsideSince_.reset();
  // Up, or on its way up: an open now would only restart the goo's growth.
  if (panel_->isVisible() && !motion_->closedAt()) return;
  panel_->orderFront();
  motion_->open();
}

void TrayController::hide() {
  motion_->close([weak = weak_from_this()] {
    if (auto self = weak.lock()) self->panel_->orderOut();
  });
}

void TrayController::layout() {
  auto notch = notch_.lock();
  if (!notch) return;
  std::optional<Size> fitting = fittingSize ? fittingSize() : std::nullopt;
  double width = fitting && fitting->width > 0 ? fitting->width : kDefaultWidth;
  double height = fitting && fitting->height > 0 ? fitting->height : kDefaultHeight;
  Rect band = notch->notchRect();
  Rect frame{band.x + band.width / 2 - width / 2, band.maxY(), width, height};
  if (panel_->frame() != frame) panel_->setFrame(frame);
}

void TrayController::pinFor(double seconds) { pinnedUntil_ = clock_.now() + seconds; }

void TrayController::restoreAll() {
  if (onRestoreAll) onRestoreAll();
}

void TrayController::dismissRestore() {
  if (onDismissRestore) onDismissRestore();
}

void TrayController::focusPiece(const UUID& id) {
  if (onFocusPiece) onFocusPiece(id);
}

}  // namespace zorvane
