// StatusMenuRow: one row of the status-bar item's menu, as AppDelegate describes it each
// time the menu opens; the view draws the rows and runs `action` on a click.
#pragma once

#include <functional>
#include <string>

namespace zorvane {

struct StatusMenuRow {
  enum class Kind { item, separator };
  Kind kind = Kind::item;
  std::string title;
  bool enabled = true;
  std::string tooltip;
  std::string shortcut;  // a key with the platform's command modifier, "Q"
  std::function<void()> action;

  static StatusMenuRow separator() { return {Kind::separator, "", false, "", "", {}}; }
  static StatusMenuRow label(std::string title) { return {Kind::item, std::move(title), false, "", "", {}}; }
};

}  // namespace zorvane
