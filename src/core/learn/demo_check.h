// DemoCheck: the demonstration check of the selftest. A selftest prompt of the form
// "@learn-demo <skill folder>" doesn't go to the agent as it is: a fixed recording (a
// search for "Mom" in a chat app, then typing "Reached" and return) is compiled, and the
// agent gets the prompt that asks it to write that skill into the folder. So the whole
// path from events to a skill file can be checked from a terminal, without recording.
//
//   zorvane --selftest /tmp/work "@learn-demo /tmp/skills/send-whatsapp-message-test"
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/learn/raw_event.h"

namespace zorvane::DemoCheck {

inline constexpr std::string_view kPrefix = "@learn-demo ";

// The fixed recording, in the order it was captured.
[[nodiscard]] std::vector<RawEvent> events();

// For a prompt that starts with kPrefix: creates the skill folder named by the rest of
// the prompt, with its parents (a failure is ignored: the agent will report it), and
// gives the compiled prompt for that folder. Absent for every other prompt.
[[nodiscard]] std::optional<std::string> prompt(std::string_view selftestPrompt);

}  // namespace zorvane::DemoCheck
