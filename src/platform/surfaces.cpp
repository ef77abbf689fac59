#include "platform/surfaces.h"

namespace zorvane {

std::optional<ScreenInfo> screenContaining(const std::vector<ScreenInfo>& screens, Point point) {
  for (const ScreenInfo& screen : screens)
    if (screen.frame.contains(point)) return screen;
  for (const ScreenInfo& screen : screens)
    if (screen.isPrimary) return screen;
  if (screens.empty()) return std::nullopt;
  return screens.front();
}

}  // namespace zorvane
