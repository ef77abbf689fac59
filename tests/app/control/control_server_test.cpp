#include "app/control/control_server.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>

#include <filesystem>
#include <future>
#include <thread>

#include "app/peers/peer_server.h"
#include "core/base/child_process.h"
#include "core/base/paths.h"
#include "core/base/run_loop.h"
#include "platform/fake/fake_desktop.h"
#include "support/test_support.h"

namespace zorvane {
namespace {

bool exists(const std::string& path) {
  struct stat info {};
  return ::lstat(path.c_str(), &info) == 0;
}

// A tool server's dispatch with a scope file in a session folder of its own and, when
// wanted, an application on the peer socket that answers approvals as told and records
// them. HOME and the XDG folders are a temporary home.
class ToolDispatchTest : public ::testing::Test {
 protected:
  testing::TempHome home;
  testing::TempDir dir;
  testing::ScopedEnv socket{"ZORVANE_IPC_SOCK", dir.file("app.sock")};
  RunLoop loop;
  FakeDesktop desktop;
  FakeWindowService& windows = desktop.windows;
  std::optional<std::string> scopePath = dir.file("session/scope.json");
  std::string work = dir.file("work");
  CommandLimits limits;
  std::vector<PeerRequest> requests;
  bool allow = true;
  std::unique_ptr<PeerServer> app;

  void SetUp() override { ::mkdir(work.c_str(), 0755); }

  // A scope that only sets the working folder.
  void saveScope() {
    ControlScope scope;
    scope.workDir = work;
    scope.save(*scopePath);
  }

  void startApplication() {
    app = std::make_unique<PeerServer>(
        [this](const PeerRequest& request, PeerServer::Completion done) {
          requests.push_back(request);
          done({allow, allow ? "allowed" : "The user denied this action."});
        },
        loop);
    ASSERT_TRUE(app->start());
  }

  // Runs the call on a worker (it blocks on the socket) while this thread serves.
  std::string call(const std::string& tool, const JSONObject& arguments) {
    auto result = std::async(std::launch::async, [&] {
      ToolDispatch dispatch(
          scopePath, [this]() -> DesktopServices& { return desktop.services; }, [](int) {}, limits);
      try {
        auto content = dispatch.call(tool, arguments);
        std::string text;
        for (const auto& item : content) text += std::get<MCPContent::Text>(item.value).text;
        return text;
      } catch (const MCPToolError& error) {
        return "ERROR " + std::string(error.message());
      }
    });
    loop.runUntil([&] { return result.wait_for(std::chrono::seconds(0)) == std::future_status::ready; }, 60);
    return result.get();
  }
};

// With the gate on, a changing tool waits for the application's approval: refused, the
// command never starts; allowed, it runs in the scope's folder. Looking needs no approval.
TEST_F(ToolDispatchTest, GatedToolsRunOnlyWhenApproved) {
  ControlScope scope;
  scope.gate = true;
  scope.pieceID = UUID();
  scope.workDir = work;
  scope.save(*scopePath);
  startApplication();

  allow = false;
  EXPECT_EQ(call("run_command", {{"command", "touch refused.txt"}, {"why", "make a file"}}),
            "ERROR The user denied this action.");
  EXPECT_FALSE(exists(work + "/refused.txt")) << "a refused command never starts";
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].op, PeerRequest::Op::approve);
  EXPECT_EQ(requests[0].from, scope.pieceID);
  EXPECT_EQ(requests[0].to, "mcp__zorvane__run_command");
  EXPECT_EQ(parseJSON(*requests[0].message).value(), (JSONValue{{"command", "touch refused.txt"}, {"why", "make a file"}}));

  allow = true;
  EXPECT_EQ(call("run_command", {{"command", "touch ok.txt && pwd"}}), "exit 0\n" + work + "\n");
  EXPECT_EQ(call("list_targets", {}), scope.listing());
  EXPECT_EQ(requests.size(), 2u) << "list_targets asks nobody";

  app.reset();
  EXPECT_EQ(call("write_file", {{"path", dir.file("x.txt")}, {"content", "x"}}),
            "ERROR Zorvane isn't reachable (is the app running?).");
  EXPECT_FALSE(exists(dir.file("x.txt")));
}

// A scope file that can't be read never counts as one that asks nothing: every tool that
// changes something is refused before the approval or anything else, with the reason;
// the tools that only look still answer, on an empty scope.
TEST_F(ToolDispatchTest, AnUnreadableScopeRefusesEveryChange) {
  struct Case {
    std::string name;
    std::function<void()> prepare;
    std::string reason;
  };
  const std::string file = *scopePath;
  auto write = [&](std::string text) { return [&, text] { dir.write("session/scope.json", text); }; };
  const std::vector<Case> cases = {
      {"missing", [] {}, "scope file " + file + ": No such file or directory"},
      {"a folder in its place", [&] { std::filesystem::create_directories(file); },
       "scope file " + file + ": Is a directory"},
      {"no entries", write(R"({"gate":true,"workDir":"/tmp"})"),
       "scope file " + file + ": entries: expected an array"},
      {"gate as text", write(R"({"entries":[],"gate":"true"})"),
       "scope file " + file + ": gate: expected true or false"},
      {"garbage after the JSON", write(R"({"entries":[],"gate":true} x)"), "scope file " + file + ": not valid JSON"},
      {"no scope given", [&] { scopePath.reset(); }, "no scope file was given"},
  };
  startApplication();
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    scopePath = file;
    std::filesystem::remove_all(dir.file("session"));
    c.prepare();
    std::string refusal = "ERROR Refused: this tool server can't read its scope (" + c.reason +
                          "), so nothing that changes anything may run. Ask the user to restart this piece.";
    EXPECT_EQ(call("run_command", {{"command", "touch " + dir.file("made.txt")}}), refusal);
    EXPECT_EQ(call("write_file", {{"path", dir.file("new/made.txt")}, {"content", "x"}}), refusal);
    EXPECT_EQ(call("click", {{"x", 1}, {"y", 1}}), refusal);
    EXPECT_FALSE(exists(dir.file("made.txt")) || exists(dir.file("new"))) << "nothing is made";
    EXPECT_EQ(call("list_targets", {}), ControlScope().listing()) << "looking still works";
    EXPECT_EQ(call("frobnicate", {}), "ERROR " + ControlScope().listing()) << "an unknown tool reaches nothing";
  }
  EXPECT_TRUE(requests.empty()) << "no approval is asked for on an unreadable scope";
}

// Commands report their status and only the tail of a long output; file writes create
// folders and keep the old file when they fail.
TEST_F(ToolDispatchTest, CommandsAndFileWrites) {
  saveScope();
  EXPECT_EQ(call("run_command", {{"command", "echo out; echo err >&2; exit 3"}}), "exit 3\nout\nerr\n");
  std::string longOutput = call("run_command", {{"command", "head -c 30000 /dev/zero | tr '\\000' a; printf END"}});
  EXPECT_TRUE(longOutput.starts_with("exit 0\n"));
  EXPECT_EQ(longOutput.size(), 7u + 20000u);
  EXPECT_TRUE(longOutput.ends_with("aaaEND"));
  EXPECT_EQ(call("run_command", {{"command", 42}}), "ERROR Empty command.");
  std::string huge = call("run_command", {{"command", "head -c 50000000 /dev/zero | tr '\\000' b; echo; echo LAST"}});
  EXPECT_TRUE(huge.starts_with("exit 0\n") && huge.ends_with("bbb\nLAST\n") && huge.size() == 7u + 20000u)
      << "a command printing without end keeps only its tail";

  std::string nested = dir.file("a/b/c.txt");
  EXPECT_EQ(call("write_file", {{"path", nested}, {"content", "h\xC3\xA9llo"}}), "Wrote 6 bytes to " + nested);
  EXPECT_EQ(testing::readAll(nested), "h\xC3\xA9llo");
  ::chmod(dir.file("a/b").c_str(), 0500);
  std::string failed = call("write_file", {{"path", nested}, {"content", "new"}});
  ::chmod(dir.file("a/b").c_str(), 0755);
  if (geteuid() != 0) {  // root writes anyway
    EXPECT_TRUE(failed.starts_with("ERROR ")) << failed;
    EXPECT_EQ(testing::readAll(nested), "h\xC3\xA9llo") << "a failed write keeps the old file whole";
  }
  EXPECT_TRUE(requests.empty());
}

// An agent can't write in Zorvane's own folders or its own session folder, nor run a
// command in Zorvane's own folders, by any path, links included; a refused or malformed
// write leaves no folder behind. The scratch folder, where window-bonded agents work,
// stays theirs.
TEST_F(ToolDispatchTest, OwnFoldersAreOutOfReach) {
  saveScope();
  const std::string data = Paths::dataDirectory();
  std::filesystem::create_directories(data + "/sessions/P");
  std::filesystem::create_directories(data + "/scratch");
  ::symlink(data.c_str(), dir.file("data-link").c_str());
  ::symlink((data + "/sessions").c_str(), dir.file("late-link").c_str());
  struct Case {
    std::string path;
    std::string error;  // empty: written
  };
  auto inside = [](const std::string& folder) {
    return [folder](const std::string& path) {
      return "Refused: " + path + " is inside " + folder + ", which an agent may not change.";
    };
  };
  const std::string session = dir.file("session");
  auto inData = inside("Zorvane's data folder (" + data + ")");
  auto inState = inside("Zorvane's state folder (" + Paths::stateDirectory() + ")");
  auto inConfig = inside("Zorvane's settings folder (" + Paths::configDirectory() + ")");
  auto inSession = inside("this agent's session folder (" + session + ")");
  const std::vector<Case> cases = {
      {data + "/sessions/P/scope.json", inData(data + "/sessions/P/scope.json")},
      {data + "//sessions/./P/new/mcp.json", inData(data + "//sessions/./P/new/mcp.json")},
      {dir.file("data-link/sessions/P/scope.json"), inData(dir.file("data-link/sessions/P/scope.json"))},
      {dir.file("late-link/Q/new/scope.json"), inData(dir.file("late-link/Q/new/scope.json"))},
      {Paths::stateDirectory() + "/x/zorvane.log", inState(Paths::stateDirectory() + "/x/zorvane.log")},
      {Paths::configDirectory() + "/settings.json", inConfig(Paths::configDirectory() + "/settings.json")},
      {session + "/scope.json", inSession(session + "/scope.json")},
      {"notes/new.txt", "Use an absolute path."},
      {dir.file("new/../x.txt"), "Use a path without \"..\" in it."},
      {dir.file("new/"), "The path names a folder, not a file."},
      {dir.file("new/."), "The path names a folder, not a file."},
      {dir.file(std::string("new/a\0b", 7)), "The path holds a NUL character."},
      {work, "The path " + work + " is a folder, not a file."},
      {data + "/scratch/new/notes.txt", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.path);
    std::string result = call("write_file", {{"path", c.path}, {"content", "x"}});
    if (c.error.empty()) {
      EXPECT_EQ(result, "Wrote 1 bytes to " + c.path);
      continue;
    }
    EXPECT_EQ(result, "ERROR " + c.error);
  }
  EXPECT_EQ(testing::folderEntries(data + "/sessions"), std::vector<std::string>{"P"}) << "no folder left behind";
  EXPECT_TRUE(testing::folderEntries(data + "/sessions/P").empty());
  EXPECT_FALSE(exists(Paths::stateDirectory() + "/x") || exists(dir.file("new")));

  // The same folders as the working folder of a command; and a scratch folder swapped
  // for a link into the data folder opens nothing.
  std::filesystem::remove_all(data + "/scratch");
  ::symlink((data + "/sessions").c_str(), (data + "/scratch").c_str());
  for (const std::string& folder :
       {data, dir.file("data-link/sessions"), Paths::configDirectory(), data + "/scratch/P"}) {
    SCOPED_TRACE(folder);
    ControlScope scope;
    scope.workDir = folder;
    scope.save(*scopePath);
    std::string result = call("run_command", {{"command", "touch made.txt"}});
    EXPECT_TRUE(result.starts_with("ERROR Refused: the working folder " + folder + " is inside ")) << result;
    EXPECT_TRUE(result.ends_with(", where an agent may not run commands.")) << result;
  }
  EXPECT_FALSE(exists(data + "/sessions/P/made.txt") || exists(Paths::configDirectory() + "/made.txt"));
}

// A command past its time limit is stopped with everything it started, a job in the
// background included, and the agent reads that it was.
TEST_F(ToolDispatchTest, CommandsStopAtTheTimeLimit) {
  saveScope();
  limits = {0.3, 0.2};
  std::string result = call("run_command", {{"command", "sleep 1000 & echo $$; sleep 1000"}});
  ASSERT_TRUE(result.starts_with("exit 143\n")) << result;
  EXPECT_TRUE(result.ends_with(
      "\nStopped: the command was still running after 0.3 seconds, so it and everything it started were ended."))
      << result;
  int group = std::stoi(result.substr(9));
  EXPECT_TRUE(loop.runUntil([&] { return !testing::processGroupAlive(group); }, 10)) << "the background job lives on";
}

// Window tools without a window in reach, peers without an identity, and the whole
// desktop as the listing when the scope says so.
TEST_F(ToolDispatchTest, WindowsPeersAndTheDesktop) {
  EXPECT_EQ(call("screenshot", {}), "ERROR " + ControlScope().listing()) << "no scope file at all";
  EXPECT_EQ(call("list_targets", {}), ControlScope().listing());
  EXPECT_EQ(call("ask_piece", {{"piece", "0"}, {"message", "hi"}}),
            "ERROR This piece has no identity yet; try again in a moment.");

  windows.windowList = {
      {11, 100, 0, 0, 800, 600, 0, "Report.pdf"},   // front
      {12, 200, 0, 0, 100, 600, 0, "Too narrow"},
      {13, getpid(), 0, 0, 800, 600, 0, "Our own"},
      {14, 300, 0, 0, 800, 600, 0, "Vault"},
      {15, 400, 0, 0, 1200, 900, 0, ""},
      {16, 100, 0, 0, 800, 600, 25, "A panel"},
  };
  windows.applications = {{100, {"org.gnome.Evince", "Document Viewer"}},
                          {300, {"com.bitwarden.desktop", "Bitwarden"}},
                          {400, {"org.chromium.Chromium", ""}}};
  ControlScope scope;
  scope.allWindows = true;
  scope.save(*scopePath);
  EXPECT_EQ(call("list_targets", {}),
            "0: Document Viewer \u2014 Report.pdf [app window, org.gnome.Evince]\n"
            "1: org.chromium.Chromium [browser, org.chromium.Chromium]");
  EXPECT_EQ(call("screenshot", {{"target", "nothing"}}),
            "ERROR No attached window matches \u201Cnothing\u201D. Attached:\n"
            "0: Document Viewer \u2014 Report.pdf [app window, org.gnome.Evince]\n"
            "1: org.chromium.Chromium [browser, org.chromium.Chromium]");
  EXPECT_TRUE(call("get_target_info", {{"target", "chromium"}})
                  .starts_with("app: org.chromium.Chromium\npid: 400\nwindow: 15 \"\"\n"))
      << "the entry's window is driven";
}

// The real tool server, spoken to on its pipes.
class ToolServerProcess {
 public:
  ToolServerProcess(RunLoop& loop, const std::string& scopePath) : loop_(loop) {
    child_ = ChildProcess::create({ZORVANE_EXECUTABLE, {"--mcp", "--scope", scopePath}}, loop);
    child_->onStdout = [this](std::string chunk) { output += chunk; };
    child_->onExit = [this](int code) { exitCode = code; };
    EXPECT_TRUE(child_->start());
  }
  ~ToolServerProcess() {
    child_->kill();
    loop_.runUntil([&] { return exitCode.has_value(); }, 10);
  }
  void send(const JSONValue& request) { child_->write(encodeCompact(request) + "\n"); }
  ChildProcess& process() { return *child_; }

  std::string output;
  std::optional<int> exitCode;

 private:
  RunLoop& loop_;
  std::shared_ptr<ChildProcess> child_;
};

JSONValue commandCall(const std::string& command) {
  return {{"jsonrpc", "2.0"}, {"id", 1}, {"method", "tools/call"},
          {"params", {{"name", "run_command"}, {"arguments", {{"command", command}}}}}};
}

// However the tool server is ended while a command runs (its agent closes its input, or
// it gets SIGTERM, SIGHUP or SIGINT), the command's whole group is stopped first, and
// the server exits as it should.
TEST(ToolServer, NothingOutlivesTheServer) {
  testing::TempHome home;
  testing::TempDir dir;
  RunLoop loop;
  ControlScope scope;
  scope.workDir = dir.path();
  scope.save(dir.file("session/scope.json"));
  std::string fifo = dir.file("group");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  struct Case {
    std::string name;
    int signal;  // 0: input closes
    int exitCode;
  };
  for (const Case& c : std::vector<Case>{{"input closes", 0, 0}, {"SIGTERM", SIGTERM, 128 + SIGTERM},
                                         {"SIGHUP", SIGHUP, 128 + SIGHUP}, {"SIGINT", SIGINT, 128 + SIGINT}}) {
    SCOPED_TRACE(c.name);
    int reader = ::open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ToolServerProcess server(loop, dir.file("session/scope.json"));
    server.send(commandCall("sleep 1000 & echo $$ > " + fifo + "; sleep 1000"));
    pollfd ready{reader, POLLIN, 0};
    ASSERT_EQ(::poll(&ready, 1, 20000), 1) << "the command never started: " << server.output;
    char text[32] = {};
    ASSERT_GT(::read(reader, text, sizeof text - 1), 0);
    ::close(reader);
    int group = std::atoi(text);
    ASSERT_TRUE(testing::processGroupAlive(group));

    if (c.signal == 0) {
      server.process().closeStdin();
    } else {
      ::kill(server.process().pid(), c.signal);
    }
    ASSERT_TRUE(loop.runUntil([&] { return server.exitCode.has_value(); }, 20));
    EXPECT_EQ(server.exitCode, c.exitCode);
    EXPECT_TRUE(loop.runUntil([&] { return !testing::processGroupAlive(group); }, 10)) << "the command outlived it";
  }
}

// The tool server's peak resident memory so far, in bytes.
size_t peakMemory(pid_t pid) {
  std::string status = testing::readAll("/proc/" + std::to_string(pid) + "/status");
  size_t at = status.find("VmHWM:");
  return at == std::string::npos ? 0 : std::stoul(status.substr(at + 6)) * 1024;
}

// A request line far past the cap is answered at once with an error under its id, and
// the server never holds the line: its peak memory grows by far less than the line.
TEST(ToolServer, RefusesAnOverlongRequestAtBoundedMemory) {
  testing::TempHome home;
  testing::TempDir dir;
  RunLoop loop;
  ControlScope().save(dir.file("scope.json"));
  ToolServerProcess server(loop, dir.file("scope.json"));
  server.send({{"jsonrpc", "2.0"}, {"id", 1}, {"method", "ping"}});
  ASSERT_TRUE(loop.runUntil([&] { return server.output.find('\n') != std::string::npos; }, 20));
  size_t before = peakMemory(server.process().pid());
  ASSERT_GT(before, 0u);

  constexpr size_t kLineBytes = size_t{64} << 20;
  std::string line = R"({"jsonrpc":"2.0","id":42,"method":"tools/call","params":{"name":"write_file","arguments":)"
                     R"({"path":"/tmp/x","content":")" +
                     std::string(kLineBytes, 'a') + "\"}}}\n";
  server.output.clear();
  std::thread writer([&] { server.process().write(line); });
  bool answered = loop.runUntil([&] { return server.output.find('\n') != std::string::npos; }, 60);
  writer.join();
  ASSERT_TRUE(answered);
  auto reply = parseJSON(server.output.substr(0, server.output.find('\n')));
  ASSERT_TRUE(reply) << server.output;
  EXPECT_EQ((*reply)["id"], 42);
  EXPECT_EQ((*reply)["error"]["code"], -32600);
  EXPECT_LT(peakMemory(server.process().pid()) - before, kLineBytes / 2) << "growth of the peak resident memory";
}

}  // namespace
}  // namespace zorvane
