#include "core/geometry/screen_geometry.h"

namespace zorvane {

std::optional<Rect> notchRect(const Rect& screenFrame, const std::optional<Rect>& leftArea,
                              const std::optional<Rect>& rightArea, double topInset) {
  if (!leftArea || !rightArea || !(topInset > 0)) return std::nullopt;
  if (!(leftArea->maxX() < rightArea->minX())) return std::nullopt;
  return Rect{leftArea->maxX(), screenFrame.maxY() - topInset, rightArea->minX() - leftArea->maxX(), topInset};
}

std::vector<Rect> subtract(const Rect& rect, const Rect& hole) {
  Rect i;
  if (!intersect(rect, hole, i) || i.isEmpty()) return {rect};
  std::vector<Rect> pieces;
  auto add = [&pieces](Rect r) {
    if (!r.isEmpty()) pieces.push_back(r);
  };
  add({rect.x, rect.y, rect.width, i.minY() - rect.minY()});
  add({rect.x, i.maxY(), rect.width, rect.maxY() - i.maxY()});
  add({rect.x, i.y, i.minX() - rect.minX(), i.height});
  add({i.maxX(), i.y, rect.maxX() - i.maxX(), i.height});
  return pieces;
}

std::vector<Rect> unoccludedRects(const Rect& target, std::optional<uint32_t> targetWindowID,
                                  const std::vector<WindowFrame>& windowsFrontToBack) {
  std::vector<Rect> visible{target};
  std::vector<Rect> next;
  for (const WindowFrame& window : windowsFrontToBack) {
    if (targetWindowID && window.id == *targetWindowID) break;
    next.clear();
    for (const Rect& r : visible)
      for (const Rect& piece : subtract(r, window.frame)) next.push_back(piece);
    visible.swap(next);
    if (visible.empty()) break;
  }
  return visible;
}

}  // namespace zorvane
