#include "app/control/control_server.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <mutex>
#include <thread>

#include "app/control/window_control.h"
#include "app/shell/desktop_module.h"
#include "app/shell/selftest.h"
#include "core/base/child_process.h"
#include "core/base/file_io.h"
#include "core/base/paths.h"
#include "core/base/run_loop.h"
#include "core/base/utf8.h"
#include "core/mcp/peer_ipc.h"
#include "core/mcp/zorvane_tools.h"
#include "core/targets/browser_app.h"
#include "core/targets/target.h"
#include "platform/desktop.h"
#include "platform/platform_words.h"

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

// The scope of this call. One that can't be read is an empty scope for the tools that
// only look; a tool that changes something is refused here, before the approval is
// asked for or anything is made: a scope that can't be read says nothing about whether
// the user must approve, so it must not count as one that lets everything through.
static ControlScope scopeForCall(const std::optional<std::string>& scopePath, const ZorvaneTool* row) {
  Expected<ControlScope> scope = scopePath ? ControlScope::read(*scopePath)
                                           : Expected<ControlScope>(Failure{"no scope file was given"});
  if (scope) return std::move(*scope);
  if (row != nullptr && row->changes) {
    throw MCPToolError("Refused: this tool server can't read its scope (" + scope.error() +
                       "), so nothing that changes anything may run. Ask the user to restart this piece.");
  }
  return ControlScope();
}

std::vector<MCPContent> ToolDispatch::call(const std::string& tool, const JSONObject& arguments) {
  const ZorvaneTool* row = ZorvaneTools::find(tool);
  ControlScope scope = scopeForCall(scopePath_, row);
  if (scope.allWindows.value_or(false)) scope.entries = ControlServer::desktopEntries(desktop_().windows, getpid());

  // A tool server that serves a piece asks the application before every call that
  // changes something, whatever the scope file says of the gate: the application, not
  // a file the agent might have rewritten, knows whether the piece's calls were already
  // put to the user (its harness asked) or must be now. It can't be reached: no call.
  // Only a tool server that serves no piece takes the file's word; one whose scope lies
  // in the pieces' session folders serves a piece whatever the file now holds.
  bool servesPiece = scope.pieceID.has_value() ||
                     (scopePath_ && scopePath_->starts_with(Paths::sessionsDirectory() + "/"));
  if ((servesPiece || scope.gate.value_or(false)) && (!row || row->changes)) {
    PeerRequest approval{PeerRequest::Op::approve, scope.pieceID.value_or(UUID()), "mcp__zorvane__" + tool,
                         encodeCompact(JSONValue(arguments)), std::nullopt};
    PeerResponse answer = PeerClient::send(approval, kApprovalTimeout);
    if (!answer.ok) throw MCPToolError(answer.text);
  }

  switch (row ? row->route : ToolRoute::window) {
    case ToolRoute::shell:
      return ControlServer::runCommand(textArgument(arguments, "command").value_or(""), scope.workDir, limits_);
    case ToolRoute::file:
      return ControlServer::writeFile(textArgument(arguments, "path").value_or(""),
                                      textArgument(arguments, "content").value_or(""), scopePath_);
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

// --- Protected folders ---

// `path` with every link resolved: the real path of its longest existing prefix, then
// the rest as written. `path` is absolute and has no "." or ".." components.
static std::string resolvedPath(const std::string& path) {
  std::string prefix = path;
  for (;;) {
    char real[PATH_MAX];
    if (::realpath(prefix.empty() ? "/" : prefix.c_str(), real) != nullptr) {
      std::string resolved = real;
      std::string rest = path.substr(prefix.size());
      if (resolved == "/" && rest.starts_with('/')) return rest;
      return resolved + rest;
    }
    if (prefix.empty()) return path;
    prefix.erase(prefix.rfind('/'));
  }
}

static bool isWithin(const std::string& path, const std::string& folder) {
  return path == folder || (path.starts_with(folder) && (folder == "/" || path[folder.size()] == '/'));
}

namespace {
struct ProtectedFolder {
  std::string path;  // links resolved
  std::string name;  // what the agent reads
  std::string open;  // a folder inside it that agents may use, or empty
};
}  // namespace

// Where an agent may neither write nor run a command: Zorvane's own folders, which hold
// every piece's scope, the MCP configurations, the socket, the stores and the log; and,
// for writes, the folder of this server's own scope file (the selftest keeps it in the
// temporary folder). The scratch folder inside the data folder is open: agents bonded
// to a window work there. It is taken as written below the real data folder, so a
// scratch folder swapped for a link into the data folder opens nothing else. Every path
// is resolved through links, as is every path compared with them.
static std::vector<ProtectedFolder> protectedFolders(const std::optional<std::string>& scopePath) {
  std::vector<ProtectedFolder> folders;
  if (scopePath && scopePath->starts_with('/')) {
    folders.push_back({resolvedPath(scopePath->substr(0, std::max<size_t>(scopePath->rfind('/'), 1))),
                       "this agent's session folder", ""});
  }
  std::string data = resolvedPath(Paths::dataDirectory());
  folders.push_back({data, "Zorvane's data folder", data + "/scratch"});
  folders.push_back({resolvedPath(Paths::stateDirectory()), "Zorvane's state folder", ""});
  folders.push_back({resolvedPath(Paths::configDirectory()), "Zorvane's settings folder", ""});
  return folders;
}

// The protected folder that holds `resolved` (a path with links resolved), if any.
static std::optional<ProtectedFolder> protectedFolderHolding(const std::string& resolved,
                                                             const std::optional<std::string>& scopePath) {
  for (ProtectedFolder& folder : protectedFolders(scopePath)) {
    if (!isWithin(resolved, folder.path)) continue;
    if (!folder.open.empty() && isWithin(resolved, folder.open)) continue;
    return std::move(folder);
  }
  return std::nullopt;
}

// `path` made plain: doubled slashes and "." components dropped. A path that could mean
// something else than it shows is refused outright: a relative one, one with a NUL
// character (everything after it would be ignored), or one with a ".." component (whose
// meaning depends on the links before it).
static std::string plainPath(const std::string& path) {
  if (path.find('\0') != std::string::npos) throw MCPToolError("The path holds a NUL character.");
  if (!path.starts_with('/')) throw MCPToolError("Use an absolute path.");
  std::string plain;
  for (size_t start = 1; start <= path.size();) {
    size_t end = path.find('/', start);
    if (end == std::string::npos) end = path.size();
    std::string_view part(path.data() + start, end - start);
    if (part == "..") throw MCPToolError("Use a path without \"..\" in it.");
    if (!part.empty() && part != ".") {
      plain += '/';
      plain += part;
    }
    start = end + 1;
  }
  return plain.empty() ? "/" : plain;
}

// --- Commands ---

// Ends the tool server cleanly when its agent is gone. A signal (SIGTERM, SIGINT,
// SIGHUP) may come at any time; the end of input matters only while a command runs,
// since between calls the server reads input and sees its end itself (and a client may
// close its side and still read the last answer). A running command's process group is
// stopped before the process exits, on the main thread, once the command has ended;
// with none running the watcher thread exits the process at once.
//
// The signal handler only writes the signal's number to a pipe (SA_RESTART, so the
// thread it lands on carries on); a thread of its own watches that pipe and, while a
// command runs, the input. The signals are not blocked elsewhere: a program the desktop
// code starts would inherit the mask, and could then not be ended by them.
namespace {
class ShutdownWatch {
 public:
  static ShutdownWatch& shared() {
    static ShutdownWatch* watch = new ShutdownWatch;  // never destroyed: its thread may outlive statics
    return *watch;
  }

  void install(int input) {
    std::lock_guard lock(mutex_);
    if (installed_) return;
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) return;
    wakeRead_ = fds[0];
    wakeWrite_ = fds[1];
    ::fcntl(wakeWrite_, F_SETFL, O_NONBLOCK);
    input_ = input;
    signalPipe = wakeWrite_;
    struct sigaction action {};
    action.sa_handler = onSignal;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    for (int number : {SIGTERM, SIGINT, SIGHUP}) ::sigaction(number, &action, nullptr);
    std::thread([this] { watch(); }).detach();
    installed_ = true;
  }

  // Starts `child` as the running command, unless the server is ending.
  Expected<void> start(const std::shared_ptr<ChildProcess>& child, MainQueue& queue, double grace) {
    std::lock_guard lock(mutex_);
    if (ending_) return Failure{"The tool server is shutting down."};
    auto started = child->start();
    if (!started) return started;
    if (!installed_) return ok();
    running_ = child;
    queue_ = &queue;
    grace_ = grace;
    wake(0);
    return ok();
  }

  // The command has ended. If the server is ending, this is where it ends.
  void finish() {
    std::lock_guard lock(mutex_);
    running_.reset();
    queue_ = nullptr;
    if (ending_) exitProcess(exitCode_);
  }

 private:
  static inline int signalPipe = -1;

  static void onSignal(int number) {
    int saved = errno;
    unsigned char byte = static_cast<unsigned char>(number);
    (void)!::write(signalPipe, &byte, 1);
    errno = saved;
  }

  void wake(unsigned char byte) { (void)!::write(wakeWrite_, &byte, 1); }

  void watch() {
    for (;;) {
      bool watchInput;
      {
        std::lock_guard lock(mutex_);
        watchInput = queue_ != nullptr && !ending_;
      }
      // With no events asked, poll still reports the input's hang-up: its writer is gone.
      pollfd fds[2] = {{wakeRead_, POLLIN, 0}, {input_, 0, 0}};
      if (::poll(fds, watchInput ? 2 : 1, -1) < 0) {
        if (errno == EINTR) continue;
        return;
      }
      if (fds[0].revents & POLLIN) {
        unsigned char byte = 0;
        if (::read(wakeRead_, &byte, 1) == 1 && byte != 0) end(128 + byte);
        continue;
      }
      if (watchInput && (fds[1].revents & (POLLHUP | POLLERR | POLLNVAL))) end(0);
    }
  }

  void end(int code) {
    std::lock_guard lock(mutex_);
    if (ending_) return;
    ending_ = true;
    exitCode_ = code;
    if (queue_ == nullptr) exitProcess(code);
    queue_->post([child = running_, grace = grace_] {
      if (auto running = child.lock()) running->stop(grace);
    });
  }

  std::mutex mutex_;
  bool installed_ = false;
  bool ending_ = false;
  int exitCode_ = 0;
  int input_ = -1;
  int wakeRead_ = -1, wakeWrite_ = -1;
  std::weak_ptr<ChildProcess> running_;
  MainQueue* queue_ = nullptr;  // the running command's loop; null when none runs
  double grace_ = 0;
};
}  // namespace

// "600 seconds", "0.3 seconds".
static std::string secondsText(double seconds) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", seconds);
  return std::string(text) + (seconds == 1 ? " second" : " seconds");
}

std::vector<MCPContent> runCommand(const std::string& command, const std::optional<std::string>& folder,
                                   const CommandLimits& limits) {
  if (command.empty()) throw MCPToolError("Empty command.");
  std::string where = folder.value_or("");
  if (where.empty()) {
    char current[PATH_MAX];
    if (::getcwd(current, sizeof current) == nullptr) throw MCPToolError("The working folder can't be found.");
    where = current;
  }
  if (!where.starts_with('/')) throw MCPToolError("The working folder " + where + " isn't an absolute path.");
  std::string resolved = resolvedPath(plainPath(where));
  if (auto held = protectedFolderHolding(resolved, std::nullopt)) {
    throw MCPToolError("Refused: the working folder " + where + " is inside " + held->name + " (" + held->path +
                       "), where an agent may not run commands.");
  }

  RunLoop loop;
  std::string output;
  std::optional<int> status;
  bool stopped = false;
  {
    // The folder as checked: a link in its path is followed as it was then.
    ChildProcess::Options options{Paths::userShell(), {"-c", command}, folder ? resolved : "", std::nullopt, true,
                                  true, true};
    auto child = ChildProcess::create(std::move(options), loop);
    child->onStdout = [&output](std::string chunk) {
      output += chunk;
      // Keep only a tail that surely holds the last characters wanted (a character is
      // at most four bytes), so a command printing without end can't exhaust memory.
      constexpr size_t keep = kOutputTailCharacters * 4 + 4;
      if (output.size() > 2 * keep) output.erase(0, output.size() - keep);
    };
    child->onExit = [&status](int code) { status = code; };
    ShutdownWatch& watch = ShutdownWatch::shared();
    if (auto started = watch.start(child, loop, limits.grace); !started) throw MCPToolError(started.error());
    loop.after(limits.timeLimit, [&stopped, &child, grace = limits.grace] {
      stopped = true;
      child->stop(grace);
    });
    (void)loop.runUntil([&] { return status.has_value(); }, 1e9);
    watch.finish();
  }
  std::string text = "exit " + std::to_string(*status) + "\n" + utf8Suffix(repairUTF8(output), kOutputTailCharacters);
  if (stopped) {
    if (!text.ends_with('\n')) text += '\n';
    text += "Stopped: the command was still running after " + secondsText(limits.timeLimit) +
            ", so it and everything it started were ended.";
  }
  return {MCPContent::text(text)};
}

std::vector<MCPContent> writeFile(const std::string& path, const std::string& content,
                                  const std::optional<std::string>& scopePath) {
  if (path.ends_with('/') || path.ends_with("/.")) throw MCPToolError("The path names a folder, not a file.");
  std::string resolved = resolvedPath(plainPath(path));
  struct stat info {};
  if (::stat(resolved.c_str(), &info) == 0 && S_ISDIR(info.st_mode)) {
    throw MCPToolError("The path " + path + " is a folder, not a file.");
  }
  if (auto held = protectedFolderHolding(resolved, scopePath)) {
    throw MCPToolError("Refused: " + path + " is inside " + held->name + " (" + held->path +
                       "), which an agent may not change.");
  }
  // The resolved path is written, so a link is followed as it was when checked. Folders
  // and the file get the usual modes, less the umask, as any program's would.
  if (auto made = createDirectories(resolved.substr(0, resolved.rfind('/')), 0777); !made) {
    throw MCPToolError(made.error());
  }
  if (auto written = writeFileAtomically(resolved, content, 0666); !written) throw MCPToolError(written.error());
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
  ShutdownWatch::shared().install(STDIN_FILENO);
  std::unique_ptr<Desktop> desktop;
  ToolDispatch dispatch(scopePath, [&desktop]() -> DesktopServices& {
    if (!desktop) desktop = DesktopModule::openDesktop();
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
