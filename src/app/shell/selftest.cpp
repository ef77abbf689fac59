#include "app/shell/selftest.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "app/peers/peer_server.h"
#include "platform/process_ancestry.h"
#include "platform/headless_surfaces.h"
#include "platform/desktop.h"
#include "app/pieces/piece_controller.h"
#include "app/peers/peer_router.h"
#include "app/shell/say.h"
#include "app/shell/agents.h"
#include "core/agent/action_policy.h"
#include "core/agent/agent_factory.h"
#include "core/agent/agent_launch.h"
#include "core/mcp/control_scope.h"
#include "core/mcp/peer_ipc.h"
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

// Whether an X display is reachable: the screen can be looked at.
static bool screenReachable() {
  const char* display = getenv("DISPLAY");
  if (display == nullptr || display[0] != ':') return false;
  std::string number(display + 1);
  number = number.substr(0, number.find('.'));
  return unixSocketAccepts("/tmp/.X11-unix/X" + number);
}

// Whether the accessibility bus of the session is up.
static bool accessibilityReachable() {
  const char* runtime = getenv("XDG_RUNTIME_DIR");
  if (runtime == nullptr) return false;
  return unixSocketAccepts(std::string(runtime) + "/at-spi/bus");
}

static const char* boolText(bool value) { return value ? "true" : "false"; }

// This run's private folder, removed when the run ends.
static std::string privateFolder;

[[noreturn]] static void endSelftest(int code) {
  if (!privateFolder.empty()) {
    std::error_code ignored;
    std::filesystem::remove_all(privateFolder, ignored);
  }
  exitProcess(code);
}

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

  // A folder of this run's own in the shared temporary folder, for the scope, the
  // agent's MCP configuration and the peer socket. mkdtemp makes it 0700 under a name
  // nobody can guess and create first: a folder with a fixed name there could be made
  // by another local user, who could then swap the scope (and so what the agent may do)
  // or answer the approvals on the socket.
  std::string sessionFolder = Paths::temporaryDirectory() + "/zorvane-selftest-XXXXXX";
  if (::mkdtemp(sessionFolder.data()) == nullptr) {
    say({"start failed:", "can't make a private folder in " + Paths::temporaryDirectory() + ": " + strerror(errno)});
    exitProcess(1);
  }
  privateFolder = sessionFolder;
  // A socket of its own, so the agent's tool server finds this run and not an
  // application that may be running beside it.
  std::string socketPath = sessionFolder + "/ipc.sock";
  if (socketPath.size() > PeerIPC::addressPath(socketPath).size()) {
    say({"start failed:", "the temporary folder's path is too long for a socket: " + socketPath});
    endSelftest(1);
  }
  setenv("ZORVANE_IPC_SOCK", socketPath.c_str(), 1);

  // One piece on the target, as the application makes it, on nothing but this run's
  // folder: its scope, tool configuration and stores live there, nothing is drawn.
  const Target& target = plan->target;
  static SystemClock clock;
  static HeadlessSurfaces surfaces;
  static std::unique_ptr<Desktop> desktop = Desktop::headless();
  static Registry registry;
  static SessionStore store(sessionFolder + "/sessions.json");
  static std::shared_ptr<ActivityLog> activity = ActivityLog::make(sessionFolder + "/activity.json", loop);
  static SkillIndex skills(SkillIndex::defaultURL());
  static PieceServices services{loop,       clock,    surfaces, desktop->services(), registry,
                                store,      *activity, skills,  AgentFactory::makerOn(loop),
                                sessionFolder, sessionFolder + "/audit.log", Paths::executablePath(),
                                static_cast<int32_t>(getpid()), nullptr, {sessionFolder}};
  static PeerRouter::Pieces pieces;
  static PeerRouter router(pieces, *activity, clock, [](const PeerRequest& request) {
    auto piece = pieces.find(request.from);
    if (piece == pieces.end() || !request.senderPID || !piece->second->session()) return false;
    auto root = piece->second->session()->processID();
    return root && isProcessDescendant(*request.senderPID, *root);
  });
  static PeerServer peers(
      [say](const PeerRequest& request, const PeerServer::Completion& done) {
        say({"gate:", PeerRequest::rawValue(request.op), request.to.value_or(""),
             utf8Prefix(request.message.value_or(""), 120)});
        router.route(request, done);
      },
      loop);
  (void)peers.start();  // a failure is logged; gated tools then report the app unreachable

  say({"target:", target.targetKey(), "agent:", agentID, "AX:", boolText(accessibilityReachable()),
       "screen:", boolText(screenReachable())});

  (void)createDirectories(target.workingDirectory().path());  // the scratch folder of window targets
  auto entry = registry.bond(target).entry;
  static std::shared_ptr<PieceController> piece = PieceController::make(
      services, entry, std::nullopt, Resolved{target, std::make_shared<HiddenAnchor>(Rect{})}, {0, 0}, *agent, false,
      true);
  pieces[piece->pieceID()] = piece;
  if (piece->state().error) {
    say({"start failed:", *piece->state().error});
    endSelftest(1);
  }
  piece->onSessionEvent = [say, target](const AgentEvent& event) {
    if (auto stream = event.as<AgentEvent::Stream>()) {
      if (auto toolUse = stream->event.as<StreamEvent::ToolUse>()) {
        say({"tool:", toolUse->name});
      } else if (auto result = stream->event.as<StreamEvent::ToolResult>(); result && result->isError) {
        say({"  tool error"});
      }
    } else if (auto permission = event.as<AgentEvent::Permission>()) {
      Decision decision = ActionPolicy{{target}}.decide(permission->request.toolName, permission->request.input);
      say({"permission:", permission->request.toolName, decision.description()});
    } else if (auto finished = event.as<AgentEvent::Finished>()) {
      say({"outcome:", finished->outcome.description()});
      piece->retire(false);
      endSelftest(0);
    }
  };
  // The self-test says yes to every approval the piece puts to the user.
  piece->mutableState().onChange = [] {
    if (!piece->state().pending) return;
    MainQueue::main().post([] { piece->decide(true); });
  };
  piece->ask(plan->prompt);
  loop.after(kSelftestTimeoutSeconds, [say] {
    say({"timeout"});
    endSelftest(2);
  });
  loop.run();
  endSelftest(2);
}

}  // namespace zorvane
