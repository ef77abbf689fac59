#include "app/resolver/ax.h"

namespace zorvane::AX {

std::optional<Rect> frame(AccessibleElement& element) { return element.frame(); }

std::optional<std::pair<URL, std::shared_ptr<AccessibleElement>>> fileURL(
    const std::shared_ptr<AccessibleElement>& near) {
  std::shared_ptr<AccessibleElement> element = near;
  for (int round = 0; round < 6 && element; ++round) {
    if (std::optional<std::string> text = element->url()) {
      if (std::optional<URL> url = URL::parse(*text); url && url->isFileURL()) return std::pair{*url, element};
    }
    element = element->parent();
  }
  return std::nullopt;
}

std::optional<std::string> windowTitle(const std::shared_ptr<AccessibleElement>& near) {
  std::shared_ptr<AccessibleElement> element = near;
  for (int round = 0; round < 12 && element; ++round) {
    if (element->role() == "AXWindow") return element->title();
    element = element->parent();
  }
  return std::nullopt;
}

}  // namespace zorvane::AX
