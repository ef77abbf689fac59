// FriendlyError: the sentence the user reads when an agent's turn fails, instead of the
// raw error of the tool behind it. Known causes (not signed in, usage limit, no network,
// a conversation that can't be resumed) get a next step; anything else is shown trimmed
// and cut to 400 characters.
//
//   FriendlyError::explain("Error: Not logged in · Please run /login", AgentKind::claude());
//   // "Claude Code isn't signed in. Open a terminal, run `claude`, and sign in. Then try again."
//
// Matching ignores case. Pure and total; no state.
#pragma once

#include <string>
#include <string_view>

#include "core/agent/agent_kind.h"

namespace zorvane::FriendlyError {

// The text for a failure `raw` reported by a session of `agent`.
[[nodiscard]] std::string explain(std::string_view raw, const AgentKind& agent);

}  // namespace zorvane::FriendlyError
