#include "app/selftest.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "app/say.h"
#include "core/agent/claude_session.h"
#include "core/agent/session_launch.h"
#include "core/base/file_io.h"
#include "core/base/json_value.h"
#include "core/base/log.h"
#include "core/base/paths.h"
#include "core/base/run_loop.h"
#include "core/base/uuid.h"

namespace zorvane {

static constexpr double kSelftestTimeoutSeconds = 180;

void exitProcess(int code) {
  Log::flush();
  fflush(stdout);
  fflush(stderr);
  // Reader and reaper threads may still be running; skip static destructors.
  _exit(code);
}

// The first executable file called `name` in the folders of PATH.
static std::optional<std::string> findOnPath(const std::string& name) {
  const char* path = getenv("PATH");
  std::string_view rest = path != nullptr ? path : "/usr/local/bin:/usr/bin:/bin";
  while (!rest.empty()) {
    size_t colon = rest.find(':');
    std::string folder(rest.substr(0, colon));
    rest = colon == std::string_view::npos ? std::string_view() : rest.substr(colon + 1);
    if (folder.empty()) folder = ".";
    std::string candidate = folder + "/" + name;
    struct stat info {};
    if (::stat(candidate.c_str(), &info) == 0 && S_ISREG(info.st_mode) &&
        ::access(candidate.c_str(), X_OK) == 0) {
      return candidate;
    }
  }
  return std::nullopt;
}

// The user's model choice for an agent: "model.<id>" in the settings file, if set.
static std::optional<std::string> chosenModel(const std::string& agentID) {
  auto bytes = readFile(Paths::settingsFile());
  if (!bytes) return std::nullopt;
  auto settings = parseJSON(*bytes);
  if (!settings) return std::nullopt;
  auto model = stringValue(subscript(*settings, "model." + agentID));
  if (!model || model->empty()) return std::nullopt;
  return model;
}

static bool connectsToUnixSocket(const std::string& path) {
  sockaddr_un address{};
  if (path.size() >= sizeof address.sun_path) return false;
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, path.size());
  int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return false;
  bool connected = ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  ::close(fd);
  return connected;
}

// Whether an X display is reachable: the screen can be looked at.
static bool screenReachable() {
  const char* display = getenv("DISPLAY");
  if (display == nullptr || display[0] != ':') return false;
  std::string number(display + 1);
  number = number.substr(0, number.find('.'));
  return connectsToUnixSocket("/tmp/.X11-unix/X" + number);
}

// Whether the accessibility bus of the session is up.
static bool accessibilityReachable() {
  const char* runtime = getenv("XDG_RUNTIME_DIR");
  if (runtime == nullptr) return false;
  return connectsToUnixSocket(std::string(runtime) + "/at-spi/bus");
}

static const char* boolText(bool value) { return value ? "true" : "false"; }

void runSelftest(const CommandLine& commandLine) {
  Say say(commandLine.value("--out"));
  auto plan = makeSelftestPlan(commandLine);
  if (!plan) {
    say({plan.error()});
    exitProcess(1);
  }

  static RunLoop loop;
  MainQueue::setMain(&loop);

  const std::string& agentID = plan->agentID;
  std::optional<std::string> executable = agentID == "claude" ? findOnPath("claude") : std::nullopt;
  if (!executable) {
    say({"agent not found:", agentID});
    exitProcess(1);
  }

  std::string sessionFolder = Paths::temporaryDirectory() + "/zorvane-selftest-" + agentID;
  (void)createDirectories(sessionFolder);  // a failure shows up when the agent starts

  const Target& target = plan->target;
  say({"target:", target.targetKey(), "agent:", agentID, "AX:", boolText(accessibilityReachable()),
       "screen:", boolText(screenReachable())});

  UUID sessionID;
  std::string workingDirectory = target.workingDirectory().path();
  std::string systemPrompt = SessionLaunch::systemPrompt(target, {});
  std::vector<std::string> arguments =
      SessionLaunch::arguments(sessionID, false, systemPrompt, SessionLaunch::settingsJSON(),
                               std::nullopt, chosenModel(agentID));

  static std::shared_ptr<ClaudeSession> session =
      ClaudeSession::create(*executable, std::move(arguments), workingDirectory, loop);
  session->onEvent = [say](const AgentEvent& event) {
    if (auto stream = event.as<AgentEvent::Stream>()) {
      if (auto toolUse = stream->event.as<StreamEvent::ToolUse>()) {
        say({"tool:", toolUse->name});
      } else if (auto result = stream->event.as<StreamEvent::ToolResult>(); result && result->isError) {
        say({"  tool error"});
      }
    } else if (auto permission = event.as<AgentEvent::Permission>()) {
      // The selftest allows every request; the line shows what it answered.
      say({"permission:", permission->request.toolName, "allow"});
      session->respond(permission->request, true);
    } else if (auto finished = event.as<AgentEvent::Finished>()) {
      say({"outcome:", finished->outcome.description()});
      session->terminate();
      exitProcess(0);
    }
  };

  if (auto started = session->start(); !started) {
    say({"start failed:", started.error()});
    exitProcess(1);
  }
  session->send(plan->prompt);
  loop.after(kSelftestTimeoutSeconds, [say] {
    say({"timeout"});
    exitProcess(2);
  });
  loop.run();
  exitProcess(2);
}

}  // namespace zorvane
