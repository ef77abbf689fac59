// ZorvaneTools: the table of tools this program's tool server offers an agent.
#pragma once

#include <set>
#include <string>
#include <vector>

namespace zorvane::ZorvaneTools {

// The tools that only look and never change anything; agents may use them without
// asking the user.
const std::set<std::string>& readOnly();

// The names of every tool, in the order the server lists them.
const std::vector<std::string>& names();

}  // namespace zorvane::ZorvaneTools
