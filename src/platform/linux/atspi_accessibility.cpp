#include "platform/linux/atspi_accessibility.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <limits>

#include "platform/linux/atspi_element.h"
#include "platform/linux/atspi_runtime.h"

namespace zorvane {
namespace {

// Bounds of the descent to the element under a point: levels, and the children looked
// at one by one where the toolkit gives no answer itself.
constexpr int kMaxDescent = 64;
constexpr int kMaxScannedChildren = 256;
constexpr int kTransparentDepth = 3;

bool sameObject(AtspiAccessible* a, AtspiAccessible* b) {
  if (a == b) return true;
  if (!a || !b) return false;
  AtspiObject* left = ATSPI_OBJECT(a);
  AtspiObject* right = ATSPI_OBJECT(b);
  return left->app == right->app && left->path && right->path && std::strcmp(left->path, right->path) == 0;
}

bool isShowing(AtspiElement& element) {
  if (!element.app()->answering()) return false;
  GObjectPtr<AtspiStateSet> states(atspi_accessible_get_state_set(element.object()));
  return states && atspi_state_set_contains(states.get(), ATSPI_STATE_SHOWING);
}

int clampToInt(double value) {
  if (!std::isfinite(value)) return 0;
  return int(std::clamp(std::floor(value), double(INT_MIN), double(INT_MAX)));
}

// The toolkit's answer for the child of `element` at the point (GTK answers one level at
// a time, others may jump deeper); null when it has none.
std::shared_ptr<AtspiElement> childAtPoint(AtspiElement& element, Point point) {
  if (!element.app()->answering()) return nullptr;
  auto started = std::chrono::steady_clock::now();
  GObjectPtr<AtspiComponent> component(atspi_accessible_get_component_iface(element.object()));
  if (!component) return nullptr;
  GErrorSlot error;
  GObjectPtr<AtspiAccessible> hit;
  hit.reset(atspi_component_get_accessible_at_point(component.get(), clampToInt(point.x), clampToInt(point.y),
                                                     ATSPI_COORD_TYPE_SCREEN, error.out()));
  element.app()->noteCall(started);
  if (error.failed() || !hit || sameObject(hit.get(), element.object())) return nullptr;
  return std::make_shared<AtspiElement>(std::move(hit), element.app(), false);
}

// Where the toolkit doesn't answer, the children are looked at directly: the smallest one
// on screen that contains the point. A child with no usable extents (Thunar's page tabs
// report -1 everywhere) is looked through, a few levels deep.
std::shared_ptr<AtspiElement> scanChildren(AtspiElement& element, Point point, int transparentDepth) {
  auto children = element.children();
  if (!children) return nullptr;
  std::shared_ptr<AtspiElement> best;
  double bestArea = std::numeric_limits<double>::infinity();
  int scanned = 0;
  for (auto& child : *children) {
    if (++scanned > kMaxScannedChildren) break;
    auto candidate = std::static_pointer_cast<AtspiElement>(child);
    std::optional<Rect> frame = candidate->frame();
    bool usable = frame && !frame->isEmpty();
    if (usable && !frame->contains(point)) continue;
    // A child without usable extents, or one over the point that doesn't say it is
    // showing (Thunar's page tab, depending on how its window came up), is looked
    // through: what lies inside must be showing itself.
    if (!usable || !isShowing(*candidate)) {
      if (transparentDepth <= 0) continue;
      auto inner = scanChildren(*candidate, point, transparentDepth - 1);
      if (!inner) continue;
      std::optional<Rect> innerFrame = inner->frame();
      double area = innerFrame ? innerFrame->width * innerFrame->height : 0;
      if (area < bestArea) best = std::move(inner), bestArea = area;
      continue;
    }
    double area = frame->width * frame->height;
    if (area < bestArea) best = std::move(candidate), bestArea = area;
  }
  return best;
}

}  // namespace

AtspiAccessibility::AtspiAccessibility() {
  AtspiRuntime& runtime = AtspiRuntime::shared();
  runtime.ensureAccessibilityEnabled();
  // A bus that isn't there yet is tried again by trusted(), windows() and elementAt().
  (void)runtime.start();
}

bool AtspiAccessibility::trusted() {
  AtspiRuntime& runtime = AtspiRuntime::shared();
  if (!runtime.ensureAccessibilityEnabled()) return false;
  if (!runtime.start()) return false;
  return runtime.desktopAnswers();
}

std::vector<std::shared_ptr<AccessibleElement>> AtspiAccessibility::windows(int32_t pid) {
  std::vector<std::shared_ptr<AccessibleElement>> windows;
  AtspiRuntime& runtime = AtspiRuntime::shared();
  if (!runtime.start()) return windows;
  // An application's children on the accessibility desktop are its top-level windows
  // (frames, dialogs, pop-ups; a Qt window reports itself as a plain widget).
  for (const std::shared_ptr<AtspiApp>& app : runtime.applicationsFor(pid)) {
    GObjectPtr<AtspiAccessible> root(ATSPI_ACCESSIBLE(g_object_ref(app->root())));
    AtspiElement application(std::move(root), app, false);
    auto children = application.children();
    if (!children) continue;
    for (auto& child : *children) {
      auto* element = static_cast<AtspiElement*>(child.get());
      GObjectPtr<AtspiAccessible> object(ATSPI_ACCESSIBLE(g_object_ref(element->object())));
      windows.push_back(std::make_shared<AtspiElement>(std::move(object), app, true));
    }
  }
  return windows;
}

std::shared_ptr<AccessibleElement> AtspiAccessibility::elementAt(int32_t pid, Point screenPoint) {
  // The window under the point: of those on screen that contain it, the smallest, since
  // pop-ups and dialogs lie over the window they belong to.
  std::shared_ptr<AtspiElement> current;
  double currentArea = std::numeric_limits<double>::infinity();
  for (auto& window : windows(pid)) {
    auto element = std::static_pointer_cast<AtspiElement>(window);
    std::optional<Rect> frame = element->frame();
    if (!frame || !frame->contains(screenPoint) || !isShowing(*element)) continue;
    double area = frame->width * frame->height;
    if (area < currentArea) current = std::move(element), currentArea = area;
  }
  if (!current) return nullptr;

  for (int level = 0; level < kMaxDescent; ++level) {
    std::shared_ptr<AtspiElement> next = childAtPoint(*current, screenPoint);
    if (!next) next = scanChildren(*current, screenPoint, kTransparentDepth);
    if (!next) break;
    current = std::move(next);
  }
  return current;
}

}  // namespace zorvane
