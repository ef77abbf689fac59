// AX: small reads of the accessibility tree shared by drop resolution and restoration.
// Each asks the element afresh and gives nothing on any failure.
#pragma once

#include <memory>
#include <optional>
#include <utility>

#include "core/base/url.h"
#include "platform/accessibility.h"

namespace zorvane::AX {

// The element's frame; nothing when it has none.
[[nodiscard]] std::optional<Rect> frame(AccessibleElement& element);

// The first file URL on the way up from `element` (itself, then its parents, at most
// six elements in all), with the element that carries it. A file manager reports it on
// the item's cell, a point may land on a part below it (the icon, the label); a web
// link gives a URL that is no file URL, and the walk goes on upward.
[[nodiscard]] std::optional<std::pair<URL, std::shared_ptr<AccessibleElement>>> fileURL(
    const std::shared_ptr<AccessibleElement>& near);

// The title of the window holding `element` ("AXWindow", at most twelve steps up);
// nothing when the walk ends first.
[[nodiscard]] std::optional<std::string> windowTitle(const std::shared_ptr<AccessibleElement>& near);

}  // namespace zorvane::AX
