#include "app/shell/selftest.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "app/peers/peer_server.h"
#include "app/shell/say.h"
#include "app/shell/agents.h"
#include "core/agent/action_policy.h"
#include "core/agent/agent_factory.h"
#include "core/agent/agent_launch.h"
#include "core/mcp/control_scope.h"
#include "core/agent/session_launch.h"
#include "core/base/file_io.h"
#include "core/base/json_value.h"
#include "core/base/log.h"
#include "core/base/paths.h"
#include "core/base/run_loop.h"
#include "core/base/utf8.h"
#include "core/base/uuid.h"
#include "core/learn/demo_check.h"

namespace zorvane {

static constexpr double kSelftestTimeoutSeconds = 180;

void exitProcess(int code) {
  Log::flush();
  fflush(stdout);
  fflush(stderr);
  // Reader and reaper threads may still be running; skip static destructors.
  _exit(code);
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
  // "@learn-demo <folder>": the agent gets the prompt compiled from a fixed recording.
  if (auto demo = DemoCheck::prompt(plan->prompt)) plan->prompt = std::move(*demo);

  static RunLoop loop;
  MainQueue::setMain(&loop);

  const std::string& agentID = plan->agentID;
  std::optional<InstalledAgent> agent;
  for (InstalledAgent& found : Agents::discover()) {
    if (found.kind.id == agentID) {
      agent = std::move(found);
      break;
    }
  }
  if (!agent) {
    say({"agent not found:", agentID});
    exitProcess(1);
  }

  // A socket of its own, so the agent's tool server finds this run and not an
  // application that may be running beside it.
  std::string socketPath = Paths::temporaryDirectory() + "/zorvane-selftest-" + std::to_string(getpid()) + ".sock";
  setenv("ZORVANE_IPC_SOCK", socketPath.c_str(), 1);
  static PeerServer peers(
      [say](const PeerRequest& request, const PeerServer::Completion& done) {
        say({"gate:", PeerRequest::rawValue(request.op), request.to.value_or(""),
             utf8Prefix(request.message.value_or(""), 120)});
        bool approval = request.op == PeerRequest::Op::approve;
        done({true, approval ? "allowed" : "selftest"});
      },
      loop);
  (void)peers.start();  // a failure is logged; gated tools then report the app unreachable

  const Target& target = plan->target;
  std::string sessionFolder = Paths::temporaryDirectory() + "/zorvane-selftest-" + agentID;
  std::string scopePath = sessionFolder + "/scope.json";
  (void)createDirectories(sessionFolder);  // a failure shows up when the agent starts
  ControlScope({target}, UUID()).save(scopePath);

  say({"target:", target.targetKey(), "agent:", agentID, "AX:", boolText(accessibilityReachable()),
       "screen:", boolText(screenReachable())});

  std::string workingDirectory = target.workingDirectory().path();
  (void)createDirectories(workingDirectory);  // the scratch folder of window targets
  std::string systemPrompt = SessionLaunch::systemPrompt(target, {});

  ControlScope scope = ControlScope::load(scopePath);
  scope.gate = agent->kind.id != AgentKind::claude().id;
  scope.workDir = workingDirectory;
  scope.save(scopePath);

  AgentFactory::Request request{*agent,
                                UUID(),
                                false,
                                std::nullopt,
                                workingDirectory,
                                sessionFolder,
                                scopePath,
                                *scope.gate ? systemPrompt + "\n" + AgentLaunch::gatedNote : systemPrompt,
                                Paths::executablePath()};
  auto made = AgentFactory::make(request, loop);
  if (!made) {
    say({"start failed:", made.error()});
    exitProcess(1);
  }
  static std::shared_ptr<AgentTransport> session = std::move(*made);
  session->onEvent = [say, target, socketPath](const AgentEvent& event) {
    if (auto stream = event.as<AgentEvent::Stream>()) {
      if (auto toolUse = stream->event.as<StreamEvent::ToolUse>()) {
        say({"tool:", toolUse->name});
      } else if (auto result = stream->event.as<StreamEvent::ToolResult>(); result && result->isError) {
        say({"  tool error"});
      }
    } else if (auto permission = event.as<AgentEvent::Permission>()) {
      // The line shows what the policy would decide; the selftest allows every request.
      Decision decision = ActionPolicy{{target}}.decide(permission->request.toolName, permission->request.input);
      say({"permission:", permission->request.toolName, decision.description()});
      session->respond(permission->request, true);
    } else if (auto finished = event.as<AgentEvent::Finished>()) {
      say({"outcome:", finished->outcome.description()});
      session->terminate();
      ::unlink(socketPath.c_str());
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
