// ZorvaneTools: the table of tools this program's tool server offers an agent.
#pragma once

#include <set>
#include <string>

namespace zorvane::ZorvaneTools {

// The tools that only look and never change anything; agents may use them without
// asking the user.
const std::set<std::string>& readOnly();

}  // namespace zorvane::ZorvaneTools
