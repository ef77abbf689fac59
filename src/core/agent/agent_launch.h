// AgentLaunch: everything that builds the command line of one turn of a turn-based agent
// (one process per turn), and the note that tells such an agent its own tools are off.
//
// The argument lists follow the releases they were tested against: Codex 0.169 and
// Pi 0.73. Every element is one process argument; paths inside the Codex `-c` values are
// quoted for its configuration syntax, paths elsewhere pass untouched.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/agent/agent_kind.h"

namespace zorvane {

struct AgentLaunch {
  AgentKind kind;
  std::string executable;            // the agent tool
  std::optional<std::string> model;  // absent for the tool's default (empty counts as absent)
  std::string workDir;               // the target's working folder
  std::string sessionDir;            // the session folder
  std::string scopePath;             // the scope file of this session
  std::string zorvaneExecutable;     // this program, started by the agent as its tool server
  std::string systemPrompt;          // with the gated note already added where it belongs

  // Every kind but the resident one can't gate its own tools.
  bool gated() const { return kind.id != AgentKind::claude().id; }

  static const std::string gatedNote;

  // The tool-server configuration Pi's extension reads from the session folder.
  std::optional<std::string> piMCPConfig() const;
  // The Pi extension shipped beside this program's executable.
  std::string piExtensionPath() const;

  std::vector<std::string> codexArguments(const std::string& prompt,
                                          const std::optional<std::string>& resumeID) const;
  std::vector<std::string> piArguments(const std::string& prompt,
                                       const std::optional<std::string>& resumeID) const;

  // "…" with backslashes and double quotes escaped, for a value in a Codex `-c` option.
  static std::string quotedPath(const std::string& path);
};

}  // namespace zorvane
