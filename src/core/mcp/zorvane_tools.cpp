#include "core/mcp/zorvane_tools.h"

namespace zorvane::ZorvaneTools {

const std::set<std::string>& readOnly() {
  static const std::set<std::string> tools = {
      "list_targets", "get_target_info", "screenshot",  "read_ui_tree",   "browser_read_page",
      "list_pieces",  "ask_piece",       "tell_piece",  "list_schedules",
  };
  return tools;
}

const std::vector<std::string>& names() {
  static const std::vector<std::string> tools = {
      "list_targets",  "get_target_info",   "screenshot",      "read_ui_tree",     "press",
      "set_value",     "click",             "type_text",       "press_key",        "scroll",
      "run_command",   "write_file",        "run_applescript", "browser_read_page", "browser_eval",
      "browser_navigate", "list_pieces",    "ask_piece",       "tell_piece",       "list_schedules",
      "create_schedule",  "delete_schedule",
  };
  return tools;
}

}  // namespace zorvane::ZorvaneTools
