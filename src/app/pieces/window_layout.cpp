#include "app/pieces/window_layout.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>

#include "core/base/log.h"

namespace zorvane {

namespace {

// Room kept round a fitted window: from the work area's left edge, its top and its
// bottom, and in all across the width (one margin left of the window, one beside the
// panel).
constexpr double kLeftMargin = 8;
constexpr double kTopMargin = 4;
constexpr double kBottomMargin = 8;
constexpr double kSideMargins = 16;

std::string number(double value) {
  char text[32];
  if (std::abs(value - std::round(value)) < 0.005)
    std::snprintf(text, sizeof text, "%.0f", std::round(value));
  else
    std::snprintf(text, sizeof text, "%.2f", value);
  return text;
}

// "(x, y, w, h)"
std::string describe(const Rect& r) {
  return "(" + number(r.x) + ", " + number(r.y) + ", " + number(r.width) + ", " + number(r.height) +
         ")";
}

}  // namespace

WindowLayout::WindowLayout(WindowService& windows, MainQueue& queue, const Surfaces& surfaces)
    : windows_(windows), queue_(queue), surfaces_(surfaces) {}

void WindowLayout::makeRoom(const std::shared_ptr<Anchor>& anchor, double panelWidth,
                            std::function<void()> completion) {
  auto finish = [&completion] {
    if (completion) completion();
  };
  std::optional<uint32_t> windowID = anchor ? anchor->windowID() : std::nullopt;
  if (!windowID || !windows_.window(*windowID)) {
    finish();
    return;
  }
  if (!windows_.isFullScreen(*windowID).value_or(false)) {
    fit(*windowID, *anchor, panelWidth);
    finish();
    return;
  }

  Log::info("window " + std::to_string(*windowID) +
            " is full screen; leaving full screen to dock the chat");
  (void)windows_.leaveFullScreen(*windowID);
  std::weak_ptr<bool> alive = alive_;
  std::weak_ptr<Anchor> weakAnchor = anchor;
  queue_.after(kFullScreenExitDelay, [this, alive, weakAnchor, id = *windowID, panelWidth,
                                      completion = std::move(completion)] {
    if (alive.expired()) return;
    if (auto anchor = weakAnchor.lock()) fit(id, *anchor, panelWidth);
    if (completion) completion();
  });
}

void WindowLayout::fit(uint32_t windowID, Anchor& anchor, double need) {
  anchor.tick();
  std::optional<WindowInfo> window = windows_.window(windowID);
  if (!window) return;
  Rect frame{window->x, window->y, window->width, window->height};
  Point middle{frame.x + frame.width / 2, frame.y + frame.height / 2};
  std::optional<ScreenInfo> screen = screenContaining(surfaces_.screens(), middle);
  if (!screen) return;
  const Rect& work = screen->visibleFrame;
  if (work.maxX() - frame.maxX() >= need || frame.minX() - work.minX() >= need) return;

  Rect fitted;
  fitted.x = work.minX() + kLeftMargin;
  fitted.y = std::max(work.minY() + kTopMargin, frame.minY());
  fitted.width = work.width - need - kSideMargins;
  fitted.height = std::min(work.maxY() - fitted.y - kBottomMargin, frame.height);
  // A size that can't be had (a work area narrower than the panel, a window whose top
  // lies below the work area) is not asked for: that side keeps the window's own.
  if (!(fitted.width > 0)) fitted.width = frame.width;
  if (!(fitted.height > 0)) fitted.height = frame.height;

  Log::info("resizing window to make room for the chat: " + describe(frame) + " → " +
            describe(fitted));
  (void)windows_.moveResize(windowID, fitted.x, fitted.y, fitted.width, fitted.height);
}

}  // namespace zorvane
