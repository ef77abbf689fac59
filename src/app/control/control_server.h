// ControlServer: the tool server an agent starts as `zorvane --mcp --scope <file>`.
//
// Every tools/call re-reads the scope file (so the application's changes apply on the
// next call), replaces the windows in reach by the whole desktop when the scope says
// `allWindows`, asks the application for approval over the peer socket when the scope
// says `gate` and the tool changes something, and then runs the tool: a shell command,
// a file write, the window listing, a request to the application (peers, schedules),
// or a window tool. A refused, unanswered or unreachable approval never runs the tool.
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

class ToolDispatch {
 public:
  // The desktop is asked for on the first call that needs it, so a server that only
  // runs commands never connects to the display. `sleeper` paces synthetic input; tests
  // pass one that doesn't wait.
  using DesktopProvider = std::function<DesktopServices&()>;
  ToolDispatch(std::optional<std::string> scopePath, DesktopProvider desktop, Input::Sleeper sleeper = Input::realSleep)
      : scopePath_(std::move(scopePath)), desktop_(std::move(desktop)), sleeper_(std::move(sleeper)) {}

  // The MCPServer handler.
  std::vector<MCPContent> call(const std::string& tool, const JSONObject& arguments);

 private:
  std::optional<std::string> scopePath_;
  DesktopProvider desktop_;
  Input::Sleeper sleeper_;
};

namespace ControlServer {

// Serves MCP on standard input and output until input ends, then exits 0.
[[noreturn]] void run(const CommandLine& commandLine);

// The normal windows on screen, front to back, as scope entries: not this process's,
// not tiny, not of a denylisted application.
std::vector<ControlScope::Entry> desktopEntries(WindowService& windows, int32_t ownPID);

// Runs `command` with the user's shell in `folder` (this process's folder when absent).
// One text item: "exit N", a line feed, and the last 20,000 characters of the output.
std::vector<MCPContent> runCommand(const std::string& command, const std::optional<std::string>& folder);

// Writes `content` to the absolute `path` atomically, creating its folders.
std::vector<MCPContent> writeFile(const std::string& path, const std::string& content);

}  // namespace ControlServer

}  // namespace zorvane
