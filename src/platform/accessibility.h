// Accessibility: the element tree of other applications' windows. Roles are given in
// one vocabulary ("AXButton", "AXTextField", ...) on every platform, so tool
// output reads the same everywhere. Implemented with AT-SPI in linux/, in memory in fake/.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/geometry/geometry.h"

namespace zorvane {

class AccessibleElement {
 public:
  virtual ~AccessibleElement() = default;
  virtual std::string role() = 0;  // "" when unknown
  virtual std::string title() = 0;
  virtual std::string description() = 0;
  virtual std::string help() = 0;
  // The element's value as text: its text, or the string form of a number (a check
  // box, a slider). Nothing when it has none.
  virtual std::optional<std::string> value() = 0;
  // Screen points, top-left origin; nothing when unreadable.
  virtual std::optional<Rect> frame() = 0;
  // Nothing when the children can't be read; an empty list when there are none.
  virtual std::optional<std::vector<std::shared_ptr<AccessibleElement>>> children() = 0;
  // The element that holds this one; null for an application's window (its parent is
  // the application, not an element) and when unreadable.
  virtual std::shared_ptr<AccessibleElement> parent() = 0;
  // The element's URL ("AXURL") as an absolute string. For an item of a file manager's
  // folder view, the file it stands for: the folder the window shows (from its location
  // bar, so it is the same in every view) plus the item's name. For a link or a
  // document, its address. Nothing when the element has none.
  virtual std::optional<std::string> url() = 0;
  // For a file manager's window, and any element inside one: the absolute path of the
  // folder the window shows. Nothing anywhere else.
  virtual std::optional<std::string> folder() = 0;
  // Result codes: 0 for success, anything else is the failure's code.
  virtual int press() = 0;
  virtual int setFocused(bool focused) = 0;
  virtual int setValue(const std::string& value) = 0;
  virtual int raise() = 0;
};

class AccessibilityService {
 public:
  virtual ~AccessibilityService() = default;
  // The accessibility bus is reachable and enabled.
  virtual bool trusted() = 0;
  // The top-level windows of a process; empty when none or unreadable.
  virtual std::vector<std::shared_ptr<AccessibleElement>> windows(int32_t pid) = 0;
  // The deepest element of the process's windows at a screen point, if any.
  virtual std::shared_ptr<AccessibleElement> elementAt(int32_t pid, Point screenPoint) = 0;
};

}  // namespace zorvane
