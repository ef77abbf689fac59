#include "core/mcp/zorvane_tools.h"

namespace zorvane::ZorvaneTools {

const std::set<std::string>& readOnly() {
  static const std::set<std::string> tools = {
      "list_targets", "get_target_info", "screenshot",  "read_ui_tree",   "browser_read_page",
      "list_pieces",  "ask_piece",       "tell_piece",  "list_schedules",
  };
  return tools;
}

}  // namespace zorvane::ZorvaneTools
