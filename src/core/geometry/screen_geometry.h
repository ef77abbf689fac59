// Rectangle arithmetic on screen: where the notch is, and which part of a window is
// really visible behind the windows in front of it.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "core/geometry/geometry.h"

namespace zorvane {

// One entry of a front-to-back window list.
struct WindowFrame {
  uint32_t id = 0;
  Rect frame;
};

// The notch between the safe areas left and right of the camera housing, in screen
// coordinates with the origin at the bottom left. Absent when either area is absent,
// `topInset` is 0 or less, or the areas don't leave a gap.
std::optional<Rect> notchRect(const Rect& screenFrame, const std::optional<Rect>& leftArea,
                              const std::optional<Rect>& rightArea, double topInset);

// `rect` without `hole`: up to four pieces, in this order: the full-width strip below
// the overlap, the full-width strip above it, the strips left and right of it. `rect`
// alone when the two don't overlap.
std::vector<Rect> subtract(const Rect& rect, const Rect& hole);

// The parts of `target` that no window in front of it covers. Windows come front
// first; the walk stops at the window `targetWindowID` (nothing behind it can cover
// it). Without an id every window counts as in front.
std::vector<Rect> unoccludedRects(const Rect& target, std::optional<uint32_t> targetWindowID,
                                  const std::vector<WindowFrame>& windowsFrontToBack);

}  // namespace zorvane
