// ApprovalText: what an approval card shows, so that what the user reads is what will
// run. An agent controls every byte of a tool's input, so it can try to make a card
// lie: a harmless first line and a dangerous one after a line feed, text reversed by a
// right-to-left override (U+202E), a script or a later prompt left out of the summary.
// Here every control and direction character is shown as a visible escape, the detail
// of a tool is the real thing it will run or write (the command, the full path, the
// script, the schedule's prompt and when, the text to type), and a long detail is cut
// in the middle, never at the end where a dangerous tail would hide.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "core/base/json_value.h"

namespace zorvane::ApprovalText {

// `text` with C0 and C1 controls, DEL, the direction marks, embeddings, overrides and
// isolates, and the line and paragraph separators written as "\n", "\t", "\r" or
// "\u{XXXX}"; a backslash stays a backslash. Invalid UTF-8 was repaired before.
std::string escaped(std::string_view text);

// At most `maxCharacters` characters: the start and the end of `text`, joined by " … ",
// when it is longer.
std::string cutInMiddle(std::string_view text, size_t maxCharacters);

// The real thing the tool will do, escaped; nothing for a tool with nothing to show.
// `tool` is the name the agent used (this program's tools with or without their
// "mcp__zorvane__" prefix, the harness's own tools by theirs).
std::optional<std::string> detail(std::string_view tool, const JSONObject& input);

}  // namespace zorvane::ApprovalText
