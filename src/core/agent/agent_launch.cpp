#include "core/agent/agent_launch.h"

#include "core/agent/session_launch.h"
#include "core/mcp/zorvane_tools.h"

namespace zorvane {

const std::string AgentLaunch::gatedNote =
    "Your own shell and file-writing tools are off. To change anything, use the zorvane tools: "
    "run_command for shell commands (e.g. mv, mkdir), write_file to create or overwrite a file, and "
    "the click/type tools for apps. Each of these asks the user first; if they say no, don't retry "
    "the same action.";

std::string AgentLaunch::quotedPath(const std::string& path) {
  std::string quoted = "\"";
  for (char c : path) {
    if (c == '\\' || c == '"') quoted += '\\';
    quoted += c;
  }
  return quoted + "\"";
}

std::optional<std::string> AgentLaunch::piMCPConfig() const {
  return SessionLaunch::mcpConfig(zorvaneExecutable, scopePath);
}

std::string AgentLaunch::piExtensionPath() const {
  std::string folder = zorvaneExecutable.substr(0, zorvaneExecutable.rfind('/') + 1);
  return folder + "pi-extension/zorvane-mcp.ts";
}

// Codex 0.169. Besides the server's command and arguments, the server's tools are
// approved up front (`codex exec` never asks, and would refuse every call: this
// program's tool server gates them itself), the socket variable is passed through
// (Codex hands MCP servers only a few variables of its own choosing), and the call
// limit is raised to the approval's.
std::vector<std::string> AgentLaunch::codexArguments(const std::string& prompt,
                                                     const std::optional<std::string>& resumeID) const {
  std::vector<std::string> args = {"exec", "--json", "--skip-git-repo-check", "-s", "read-only", "-C", workDir};
  args.insert(args.end(), {"-c", "mcp_servers.zorvane.command=" + quotedPath(zorvaneExecutable)});
  args.insert(args.end(), {"-c", "mcp_servers.zorvane.args=[\"--mcp\", \"--scope\", " + quotedPath(scopePath) + "]"});
  args.insert(args.end(), {"-c", "mcp_servers.zorvane.default_tools_approval_mode=\"approve\""});
  args.insert(args.end(), {"-c", "mcp_servers.zorvane.env_vars=[\"ZORVANE_IPC_SOCK\"]"});
  // A gated call waits for the user's approval up to 15 minutes; Codex's own limit on a
  // tool call (a minute by default) must not cut that short.
  args.insert(args.end(), {"-c", "mcp_servers.zorvane.tool_timeout_sec=900"});
  if (model && !model->empty()) args.insert(args.end(), {"-m", *model});
  // The system prompt goes with the first turn only; the thread keeps it. A prompt that
  // begins with "-" would be read as an option: "--" ends the options before it.
  std::string text = resumeID ? prompt : systemPrompt + "\n\n---\n\n" + prompt;
  if (resumeID) args.insert(args.end(), {"resume", *resumeID});
  if (text.starts_with('-')) args.push_back("--");
  args.push_back(text);
  return args;
}

// Pi 0.73. It has no MCP client of its own: the extension beside this executable reads
// the session folder's .mcp.json (the folder is the child's working directory) and
// offers the server's tools as mcp__zorvane__<tool>. --tools is an allow-list of exact
// names: the built-in reader plus every tool of this program's server.
std::vector<std::string> AgentLaunch::piArguments(const std::string& prompt,
                                                  const std::optional<std::string>& resumeID) const {
  std::string tools = "read";
  for (const std::string& name : ZorvaneTools::names()) tools += ",mcp__zorvane__" + name;
  std::string sessions = sessionDir + (sessionDir.ends_with('/') ? "" : "/") + "pi-sessions";
  std::vector<std::string> args = {"-p", "--mode", "json", "-e", piExtensionPath(), "--tools", tools,
                                   "--session-dir", sessions, "--append-system-prompt", systemPrompt};
  if (model && !model->empty()) args.insert(args.end(), {"--model", *model});
  if (resumeID) args.insert(args.end(), {"--session", *resumeID});
  // Pi reads an argument starting with "-" as an option and one starting with "@" as a
  // file to attach; a leading blank keeps the prompt a prompt.
  bool looksSpecial = !prompt.empty() && (prompt[0] == '-' || prompt[0] == '@');
  args.push_back(looksSpecial ? " " + prompt : prompt);
  return args;
}

}  // namespace zorvane
