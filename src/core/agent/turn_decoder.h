// TurnDecoder: the output lines of the turn-based agents (Codex's and Pi's JSON dialects)
// turned into the shared StreamEvent vocabulary plus what a turn needs to end: the
// tool's conversation id, a candidate answer, a reported failure.
//
// Total: a line that doesn't parse, or isn't one this program reads, gives an empty Line.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/agent/agent_kind.h"
#include "core/agent/stream_event.h"

namespace zorvane::TurnDecoder {

struct Line {
  std::vector<StreamEvent> events;
  std::optional<std::string> sessionID;
  std::optional<std::string> finalText;
  std::optional<std::string> error;
};

Line decode(const AgentKind& kind, std::string_view line);

// Pi's tool names in the shared vocabulary: "read" is "Read", and "zorvane_<tool>"
// becomes "mcp__zorvane__<tool>".
std::string piToolName(std::string_view name);

}  // namespace zorvane::TurnDecoder
