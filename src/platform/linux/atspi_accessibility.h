// AtspiAccessibility: the accessibility trees of other applications over AT-SPI 2.
//
// Creating one switches on the session's accessibility flag (org.a11y.Status.IsEnabled),
// so that toolkits which look at it when they start (Qt) expose their trees, and
// connects libatspi (see AtspiRuntime). Chromium shows its windows either way but their
// contents only when started with --force-renderer-accessibility. `trusted()` is true when the flag is on and
// the accessibility registry answers; it tries to switch the flag on again if someone
// turned it off, and to connect if the bus wasn't there at first.
//
// `windows(pid)` gives the top-level windows of every application of the process on the
// accessibility desktop; `elementAt` descends from the window under the point to the
// deepest element the toolkits report there. The elements are AtspiElements: they read
// live (with libatspi's signal-driven cache) and hold no lock on the remote objects.
//
// The elements' actions (press, setFocused, setValue, raise) answer 0 when done, else:
//   kAtspiFailure          the application refused (the action or the new value was
//                          turned down, e.g. a disabled control)
//   kAtspiIllegalArgument  the value doesn't fit the element (text for a number)
//   kAtspiInvalidElement   the element is gone (its object or application went away)
//   kAtspiCannotComplete   the application didn't answer in time, or the call failed
//                          on the bus
//   kAtspiNotSettable      the element has nothing that takes this value or focus
//   kAtspiNoAction         the element has no action to perform (or, for `raise`,
//                          AT-SPI offers none: the caller raises through the window
//                          manager instead)
//
// Time: each call to an application waits at most two seconds; an application that
// doesn't answer is skipped for ten seconds after that (see AtspiApp), so a walk of a
// hung application fails after one time-out. On the thread that created it only.
#pragma once

#include "platform/accessibility.h"

namespace zorvane {

inline constexpr int kAtspiFailure = -25200;
inline constexpr int kAtspiIllegalArgument = -25201;
inline constexpr int kAtspiInvalidElement = -25202;
inline constexpr int kAtspiCannotComplete = -25204;
inline constexpr int kAtspiNotSettable = -25205;
inline constexpr int kAtspiNoAction = -25206;

class AtspiAccessibility final : public AccessibilityService {
 public:
  AtspiAccessibility();

  bool trusted() override;
  std::vector<std::shared_ptr<AccessibleElement>> windows(int32_t pid) override;
  std::shared_ptr<AccessibleElement> elementAt(int32_t pid, Point screenPoint) override;
};

}  // namespace zorvane
