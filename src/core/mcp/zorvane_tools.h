// ZorvaneTools: the one table of the tools this program's tool server offers an agent,
// in the order tools/list shows them. A row holds everything about one tool: its name,
// description and parameters, whether it changes anything (and so is put to the user
// where a piece is gated), where the tool server carries it out, and what the bubble
// says while it runs. The action policy's summaries are the policy's own.
#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "core/mcp/tool_spec.h"

namespace zorvane {

// Where the tool server carries a tool out.
enum class ToolRoute {
  targets,      // the scope's listing
  shell,        // a shell command in the working folder
  file,         // a file write
  schedules,    // the application's schedules, over the peer socket
  peers,        // other pieces, over the peer socket
  unavailable,  // not on this system; the tool says what to use instead
  window,       // a window of the scope, through the desktop
};

struct ZorvaneTool {
  ToolSpec spec;
  bool changes = false;     // looks only when false: never asked
  ToolRoute route = ToolRoute::window;
  std::string_view status;  // the bubble's line while it runs
};

namespace ZorvaneTools {

// All 22 tools.
const std::vector<ZorvaneTool>& table();

// The row of a tool, by its name without the "mcp__zorvane__" prefix; null if none.
const ZorvaneTool* find(std::string_view name);

// The specs of the table, for tools/list.
std::vector<ToolSpec> specs();

// The tools that only look, talk to other pieces or list schedules; they never ask.
const std::set<std::string>& readOnly();

// The names of every tool, in table order.
const std::vector<std::string>& names();

}  // namespace ZorvaneTools
}  // namespace zorvane
