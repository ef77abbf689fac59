// FriendlyStatus: the few words shown beside a working piece while its agent uses a tool,
// in the user's language instead of the tool's name.
//
//   FriendlyStatus::describe("Read", {{"file_path", "/home/u/report.pdf"}});  // "Reading
//   report.pdf" FriendlyStatus::describe("mcp__zorvane__screenshot", {});               // "Looking
//   at the screen" FriendlyStatus::describe("SomethingNew", {});                          //
//   "Figuring it out"
//
// The user never sees a tool name: a tool this table doesn't know is "Figuring it out".
// Pure and total; no state.
#pragma once

#include <string>
#include <string_view>

#include "core/base/json_value.h"

namespace zorvane::FriendlyStatus {

// The status text for one tool call. Tools of this program's own server may come with
// their "mcp__zorvane__" prefix or without it. The file named is the last path component
// of the first of `file_path`, `path` and `notebook_path` that is text; the piece named
// is the text under `piece` unless that is a whole number (an index names no piece).
[[nodiscard]] std::string describe(std::string_view tool, const JSONObject& input);

}  // namespace zorvane::FriendlyStatus
