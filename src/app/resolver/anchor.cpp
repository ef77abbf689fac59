#include "app/resolver/anchor.h"

namespace zorvane {

static Rect frameOf(const WindowInfo& window) { return {window.x, window.y, window.width, window.height}; }

bool WindowAnchor::tick() {
  if (!windowID_) return false;
  std::optional<WindowInfo> window = windows_.window(*windowID_);
  if (!window) return false;
  frame_ = frameOf(*window);
  isOnScreen_ = window->onScreen;
  return true;
}

bool ElementAnchor::tick() {
  if (std::optional<Rect> frame = element_->frame()) {
    frame_ = *frame;
    isOnScreen_ = frame->width > 0;
  } else {
    isOnScreen_ = false;
  }
  if (!windowID_) return true;
  std::optional<WindowInfo> window = windows_.window(*windowID_);
  if (!window) return false;
  if (isOnScreen_) isOnScreen_ = window->onScreen;
  return true;
}

}  // namespace zorvane
