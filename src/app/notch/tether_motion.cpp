#include "app/notch/tether_motion.h"

namespace zorvane {

std::shared_ptr<TetherMotion> TetherMotion::make(MainQueue& queue, const Clock& clock) {
  return std::shared_ptr<TetherMotion>(new TetherMotion(queue, clock));
}

void TetherMotion::open() {
  double openedAt = clock_.wallSeconds();
  openedAt_ = openedAt;
  closedAt_.reset();
  queue_.after(kShowDelay, [weak = weak_from_this(), openedAt] {
    auto self = weak.lock();
    // A close, or a later open with its own delay, supersedes this one.
    if (!self || self->closedAt_ || self->openedAt_ != openedAt) return;
    self->setOpen(true);
  });
}

void TetherMotion::close(std::function<void()> completion) {
  if (closedAt_) return;
  closedAt_ = clock_.wallSeconds();
  setOpen(false);
  queue_.after(kCloseSeconds + 0.02, [weak = weak_from_this(), completion = std::move(completion)] {
    auto self = weak.lock();
    // An open in the meantime cancels the close.
    if (!self || !self->closedAt_) return;
    if (completion) completion();
  });
}

void TetherMotion::setOpen(bool open) {
  if (isOpen_ == open) return;
  isOpen_ = open;
  if (onChange) onChange();
}

}  // namespace zorvane
