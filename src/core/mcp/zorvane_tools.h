// ZorvaneTools: the table of tools this program's tool server offers an agent, in the
// order tools/list shows them, with the descriptions the model reads.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "core/mcp/tool_spec.h"

namespace zorvane::ZorvaneTools {

// All 22 tools, built anew per call.
std::vector<ToolSpec> specs();

// The tools that only look, talk to other pieces or list schedules; they never ask.
const std::set<std::string>& readOnly();

// The names of every tool, in table order.
const std::vector<std::string>& names();

}  // namespace zorvane::ZorvaneTools
