#include "app/control/control_server.h"

#include <unistd.h>

#include "app/shell/selftest.h"
#include "app/control/window_control.h"
#include "core/base/child_process.h"
#include "core/base/file_io.h"
#include "core/base/paths.h"
#include "core/base/platform_words.h"
#include "core/base/run_loop.h"
#include "core/base/utf8.h"
#include "core/mcp/peer_ipc.h"
#include "core/mcp/zorvane_tools.h"
#include "core/targets/browser_app.h"
#include "core/targets/target.h"
#include "platform/desktop.h"

namespace zorvane {

static constexpr double kApprovalTimeout = 900;
static constexpr double kPeerTimeout = 900;
static constexpr double kScheduleTimeout = 30;
static constexpr size_t kOutputTailCharacters = 20000;

static std::optional<std::string> textArgument(const JSONObject& arguments, const std::string& key) {
  auto it = arguments.find(key);
  if (it == arguments.end() || !it->second.is_string()) return std::nullopt;
  return it->second.get<std::string>();
}

// A request to the application; its text is the tool's result, a refusal its error.
static std::vector<MCPContent> askApplication(const PeerRequest& request, double timeout) {
  PeerResponse response = PeerClient::send(request, timeout);
  if (!response.ok) throw MCPToolError(response.text);
  return {MCPContent::text(response.text)};
}

std::vector<MCPContent> ToolDispatch::call(const std::string& tool, const JSONObject& arguments) {
  ControlScope scope = scopePath_ ? ControlScope::load(*scopePath_) : ControlScope();
  if (scope.allWindows.value_or(false)) scope.entries = ControlServer::desktopEntries(desktop_().windows, getpid());

  const ZorvaneTool* row = ZorvaneTools::find(tool);
  if (scope.gate.value_or(false) && (!row || row->changes)) {
    PeerRequest approval{PeerRequest::Op::approve, scope.pieceID.value_or(UUID()), "mcp__zorvane__" + tool,
                         encodeCompact(JSONValue(arguments)), std::nullopt};
    PeerResponse answer = PeerClient::send(approval, kApprovalTimeout);
    if (!answer.ok) throw MCPToolError(answer.text);
  }

  switch (row ? row->route : ToolRoute::window) {
    case ToolRoute::shell:
      return ControlServer::runCommand(textArgument(arguments, "command").value_or(""), scope.workDir);
    case ToolRoute::file:
      return ControlServer::writeFile(textArgument(arguments, "path").value_or(""),
                                      textArgument(arguments, "content").value_or(""));
    case ToolRoute::targets:
      return {MCPContent::text(scope.listing())};
    case ToolRoute::schedules: {
      PeerRequest request{tool == "list_schedules"    ? PeerRequest::Op::listSchedules
                          : tool == "create_schedule" ? PeerRequest::Op::createSchedule
                                                      : PeerRequest::Op::deleteSchedule,
                          scope.pieceID.value_or(UUID()), std::nullopt, std::nullopt, std::nullopt};
      request.to = textArgument(arguments, "schedule");
      if (!request.to) request.to = textArgument(arguments, "title");
      request.message = textArgument(arguments, "prompt");
      request.when = textArgument(arguments, "when");
      return askApplication(request, kScheduleTimeout);
    }
    case ToolRoute::peers: {
      if (!scope.pieceID) throw MCPToolError("This piece has no identity yet; try again in a moment.");
      PeerRequest request{tool == "list_pieces" ? PeerRequest::Op::list
                          : tool == "ask_piece" ? PeerRequest::Op::ask
                                                : PeerRequest::Op::tell,
                          *scope.pieceID, textArgument(arguments, "piece"), textArgument(arguments, "message"),
                          std::nullopt};
      return askApplication(request, kPeerTimeout);
    }
    case ToolRoute::unavailable:
      throw MCPToolError(std::string(PlatformWords::appleScriptMissing));
    case ToolRoute::window:
      break;
  }

  // The window tools, and any unknown name: first a window in reach.
  auto target = textArgument(arguments, "target");
  auto entry = scope.entry(target);
  if (!entry) {
    if (scope.entries.empty()) throw MCPToolError(scope.listing());
    throw MCPToolError("No attached window matches \u201C" + target.value_or("") + "\u201D. Attached:\n" +
                       scope.listing());
  }
  WindowControl control(entry->windowID, entry->bundleID, std::nullopt, desktop_(), sleeper_);
  return control.call(tool, arguments, fromRawValue<BrowserApp>(entry->bundleID));
}

namespace ControlServer {

std::vector<ControlScope::Entry> desktopEntries(WindowService& windows, int32_t ownPID) {
  std::vector<ControlScope::Entry> entries;
  for (const WindowInfo& window : windows.windows()) {
    if (window.layer != 0 || window.windowID == 0 || window.ownerPID <= 0 || !window.onScreen) continue;
    if (window.ownerPID == ownPID) continue;
    if (!(window.width > 120 && window.height > 80)) continue;
    auto app = windows.application(window.ownerPID);
    std::string bundleID = app ? app->bundleID : "";
    if (isDenylisted(bundleID.empty() ? std::nullopt : std::optional<std::string>(bundleID))) continue;
    std::string name = app && !app->name.empty() ? app->name : bundleID;
    if (!window.title.empty()) name += " \u2014 " + window.title;
    std::string kind = fromRawValue<BrowserApp>(bundleID) ? "browser" : "app window";
    entries.push_back({name, kind, window.windowID, bundleID, std::nullopt});
  }
  return entries;
}

std::vector<MCPContent> runCommand(const std::string& command, const std::optional<std::string>& folder) {
  if (command.empty()) throw MCPToolError("Empty command.");
  RunLoop loop;
  std::string output;
  std::optional<int> status;
  {
    ChildProcess::Options options{Paths::userShell(), {"-c", command}, folder.value_or(""), std::nullopt, true, true};
    auto child = ChildProcess::create(std::move(options), loop);
    child->onStdout = [&output](std::string chunk) {
      output += chunk;
      // Keep only a tail that surely holds the last characters wanted (a character is
      // at most four bytes), so a command printing without end can't exhaust memory.
      constexpr size_t keep = kOutputTailCharacters * 4 + 4;
      if (output.size() > 2 * keep) output.erase(0, output.size() - keep);
    };
    child->onExit = [&status](int code) { status = code; };
    if (auto started = child->start(); !started) throw MCPToolError(started.error());
    // No time limit of its own: the agent's limit on a tool call bounds it.
    (void)loop.runUntil([&] { return status.has_value(); }, 1e9);
  }
  return {MCPContent::text("exit " + std::to_string(*status) + "\n" +
                           utf8Suffix(repairUTF8(output), kOutputTailCharacters))};
}

std::vector<MCPContent> writeFile(const std::string& path, const std::string& content) {
  if (!path.starts_with('/')) throw MCPToolError("Use an absolute path.");
  std::string folder = path.substr(0, path.rfind('/'));
  if (!folder.empty()) {
    if (auto made = createDirectories(folder); !made) throw MCPToolError(made.error());
  }
  if (auto written = writeFileAtomically(path, content); !written) throw MCPToolError(written.error());
  return {MCPContent::text("Wrote " + std::to_string(content.size()) + " bytes to " + path)};
}

void run(const CommandLine& commandLine) {
  std::optional<std::string> scopePath = commandLine.value("--scope");
  if (scopePath && !scopePath->starts_with('/')) {
    // Relative to where the agent started us, made absolute once: the scope is re-read
    // at every call.
    char folder[4096];
    if (getcwd(folder, sizeof folder) != nullptr) scopePath = std::string(folder) + "/" + *scopePath;
  }
  std::unique_ptr<Desktop> desktop;
  ToolDispatch dispatch(scopePath, [&desktop]() -> DesktopServices& {
    if (!desktop) desktop = Desktop::open();
    return desktop->services();
  });
  MCPServer server(ZorvaneTools::specs(),
                   [&dispatch](const std::string& tool, const JSONObject& arguments) {
                     return dispatch.call(tool, arguments);
                   });
  server.serve(STDIN_FILENO, STDOUT_FILENO);
  exitProcess(0);
}

}  // namespace ControlServer

}  // namespace zorvane
