// SessionLaunch: everything an agent is started with, built by pure functions: the
// resident tool's argument list, its permission settings, the tool-server
// configuration, the system prompts, and the JSON lines written to the agent.
//
// Every list element is one process argument, passed unquoted: paths with blanks or
// quotes travel unchanged.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/base/json_value.h"
#include "core/base/uuid.h"
#include "core/targets/target.h"

namespace zorvane::SessionLaunch {

// The resident tool's arguments. The first launch of a conversation names its id with
// --session-id; a later one (`resume`) continues it with --resume and the same id.
std::vector<std::string> arguments(const UUID& sessionID, bool resume,
                                   const std::string& systemPrompt,
                                   const std::string& settingsJSON,
                                   const std::optional<std::string>& mcpConfigPath,
                                   const std::optional<std::string>& model);

// {"permissions":{"allow":[...]}}: the read-only tools of this program's server and the
// tool's own read-only tools, which run without asking the user.
std::string settingsJSON();

// The tool-server configuration naming this program as the "zorvane" server, started
// with --mcp --scope <scopePath>. Absent if it can't be encoded.
std::optional<std::string> mcpConfig(const std::string& executable, const std::string& scopePath);

// What the agent is told about its job on `target`, with the attached `tentacles`.
std::string systemPrompt(const Target& target, const std::vector<Target>& tentacles);

// The prompt of the whole-desktop agent, bonded to nothing.
std::string desktopPrompt();

// The instruction to keep learned skills up to date.
extern const std::string skillUpkeep;

// One user-message line for the resident tool's standard input, line feed included.
std::string userMessage(const std::string& text);

// `value` as one line of compact JSON with a line feed; a lone line feed if it can't be
// encoded.
std::string line(const JSONValue& value);

}  // namespace zorvane::SessionLaunch
