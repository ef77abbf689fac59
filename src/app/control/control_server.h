// ControlServer: the tool server an agent starts as `zorvane --mcp --scope <file>`.
//
// Every tools/call re-reads the scope file (so the application's changes apply on the
// next call), replaces the windows in reach by the whole desktop when the scope says
// `allWindows`, asks the application for approval over the peer socket when the scope
// says `gate` and the tool changes something, and then runs the tool: a shell command,
// a file write, the window listing, a request to the application (peers, schedules),
// or a window tool. A refused, unanswered or unreachable approval never runs the tool.
//
// The agent is an untrusted program, and the scope file is its leash, so:
//   - a scope file that can't be read (missing, a folder, not JSON, a field missing or of
//     the wrong type) is never taken for one that asks nothing: every tool that changes
//     something is refused before anything else happens; tools that only look run on an
//     empty scope;
//   - write_file never writes in Zorvane's own folders (data, state, config: every
//     scope, MCP configuration, socket and store) nor in the scope file's folder, links
//     resolved, so an agent can't rewrite its own scope, and run_command never runs in
//     Zorvane's own folders; the scratch folder inside the data folder, where agents
//     bonded to a window work, is theirs;
//   - a command runs in a process group of its own, for a limited time; at the limit,
//     and when the tool server ends (its input closes, or SIGTERM, SIGINT, SIGHUP) while
//     a command runs, the whole group is stopped, so nothing it started lingers.
// A command can itself still reach any file the user can: it is put to the user (or the
// agent's own permission prompt) before it runs, which is what guards its text.
//
// Single-threaded: one tool at a time, on the thread that serves.
#pragma once

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "app/shell/command_line.h"
#include "core/mcp/control_scope.h"
#include "core/mcp/mcp_server.h"
#include "app/control/input.h"
#include "platform/desktop_services.h"

namespace zorvane {

// How long a command of run_command may run. The agent waits at most 900 seconds for a
// tool call, the user's approval included, and this server runs one call at a time: a
// command that never ends would hold the agent, and every later call, until then. Ten
// minutes is room for a build or a test run and leaves the rest for the approval; the
// result says the command was stopped, so the agent can start it in smaller steps.
struct CommandLimits {
  double timeLimit = 600;
  double grace = 2;  // between SIGTERM and SIGKILL
};

class ToolDispatch {
 public:
  // The desktop is asked for on the first call that needs it, so a server that only
  // runs commands never connects to the display. `sleeper` paces synthetic input; tests
  // pass one that doesn't wait.
  using DesktopProvider = std::function<DesktopServices&()>;
  ToolDispatch(std::optional<std::string> scopePath, DesktopProvider desktop, Input::Sleeper sleeper = Input::realSleep,
               CommandLimits limits = {})
      : scopePath_(std::move(scopePath)), desktop_(std::move(desktop)), sleeper_(std::move(sleeper)), limits_(limits) {}

  // The MCPServer handler.
  std::vector<MCPContent> call(const std::string& tool, const JSONObject& arguments);

 private:
  std::optional<std::string> scopePath_;
  DesktopProvider desktop_;
  Input::Sleeper sleeper_;
  CommandLimits limits_;
};

namespace ControlServer {

// Serves MCP on standard input and output until input ends, then exits 0. SIGTERM,
// SIGINT and SIGHUP end it with 128 plus the signal's number, and input closing while a
// command runs ends it with 0, each after stopping the command's process group.
[[noreturn]] void run(const CommandLine& commandLine);

// The normal windows on screen, front to back, as scope entries: not this process's,
// not tiny, not of a denylisted application.
std::vector<ControlScope::Entry> desktopEntries(WindowService& windows, int32_t ownPID);

// Runs `command` with the user's shell in `folder` (this process's folder when absent),
// in a process group of its own, stopped at `limits`. One text item: "exit N", a line
// feed, and the last 20,000 characters of the output, then a line saying so if it was
// stopped. Refuses a folder inside one of Zorvane's own (see above).
std::vector<MCPContent> runCommand(const std::string& command, const std::optional<std::string>& folder,
                                   const CommandLimits& limits = {});

// Writes `content` to the absolute `path` atomically, creating its folders. Refuses,
// before any folder is made, a path that isn't a plain absolute file path (a NUL byte, a
// ".." component, a trailing "/", an existing folder) or that lies, links resolved,
// inside one of Zorvane's own folders or the folder of `scopePath`.
std::vector<MCPContent> writeFile(const std::string& path, const std::string& content,
                                  const std::optional<std::string>& scopePath);

}  // namespace ControlServer

}  // namespace zorvane
