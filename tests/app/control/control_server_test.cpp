#include "app/control/control_server.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <future>

#include "app/peers/peer_server.h"
#include "core/base/run_loop.h"
#include "platform/fake/fake_desktop.h"
#include "support/test_support.h"

namespace zorvane {
namespace {

// A tool server's dispatch with a scope file and, when wanted, an application on the
// peer socket that answers approvals as told and records them.
class ToolDispatchTest : public ::testing::Test {
 protected:
  testing::TempDir dir;
  testing::ScopedEnv socket{"ZORVANE_IPC_SOCK", dir.file("app.sock")};
  RunLoop loop;
  FakeDesktop desktop;
  FakeWindowService& windows = desktop.windows;
  std::string scopePath = dir.file("scope.json");
  std::vector<PeerRequest> requests;
  bool allow = true;
  std::unique_ptr<PeerServer> app;

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
          scopePath, [this]() -> DesktopServices& { return desktop.services; }, [](int) {});
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
  scope.workDir = dir.path();
  scope.save(scopePath);
  startApplication();

  allow = false;
  EXPECT_EQ(call("run_command", {{"command", "touch refused.txt"}, {"why", "make a file"}}),
            "ERROR The user denied this action.");
  EXPECT_NE(::access(dir.file("refused.txt").c_str(), F_OK), 0) << "a refused command never starts";
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].op, PeerRequest::Op::approve);
  EXPECT_EQ(requests[0].from, scope.pieceID);
  EXPECT_EQ(requests[0].to, "mcp__zorvane__run_command");
  EXPECT_EQ(parseJSON(*requests[0].message).value(), (JSONValue{{"command", "touch refused.txt"}, {"why", "make a file"}}));

  allow = true;
  EXPECT_EQ(call("run_command", {{"command", "touch ok.txt && pwd"}}), "exit 0\n" + dir.path() + "\n");
  EXPECT_EQ(call("list_targets", {}), scope.listing());
  EXPECT_EQ(requests.size(), 2u) << "list_targets asks nobody";

  app.reset();
  EXPECT_EQ(call("write_file", {{"path", dir.file("x.txt")}, {"content", "x"}}),
            "ERROR Zorvane isn't reachable (is the app running?).");
  EXPECT_NE(::access(dir.file("x.txt").c_str(), F_OK), 0);
}

// Without the gate nothing is asked; commands report their status and only the tail of
// a long output; file writes want absolute paths, create folders and keep the old file
// when they fail.
TEST_F(ToolDispatchTest, CommandsAndFileWrites) {
  EXPECT_EQ(call("run_command", {{"command", "echo out; echo err >&2; exit 3"}}), "exit 3\nout\nerr\n");
  std::string longOutput = call("run_command", {{"command", "head -c 30000 /dev/zero | tr '\\000' a; printf END"}});
  EXPECT_TRUE(longOutput.starts_with("exit 0\n"));
  EXPECT_EQ(longOutput.size(), 7u + 20000u);
  EXPECT_TRUE(longOutput.ends_with("aaaEND"));
  EXPECT_EQ(call("run_command", {{"command", 42}}), "ERROR Empty command.");

  EXPECT_EQ(call("write_file", {{"path", "notes.txt"}, {"content", "x"}}), "ERROR Use an absolute path.");
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

// A command that prints without end keeps only its tail in memory.
TEST_F(ToolDispatchTest, HugeOutputKeepsOnlyTheTail) {
  std::string text = call("run_command", {{"command", "head -c 50000000 /dev/zero | tr '\\000' b; echo; echo LAST"}});
  EXPECT_TRUE(text.starts_with("exit 0\n"));
  EXPECT_TRUE(text.ends_with("bbb\nLAST\n"));
  EXPECT_EQ(text.size(), 7u + 20000u);
}

// Window tools without a window in reach, peers without an identity, and the whole
// desktop as the listing when the scope says so.
TEST_F(ToolDispatchTest, WindowsPeersAndTheDesktop) {
  EXPECT_EQ(call("screenshot", {}), "ERROR " + ControlScope().listing()) << "no scope file at all";
  EXPECT_EQ(call("frobnicate", {}), "ERROR " + ControlScope().listing());
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
  scope.save(scopePath);
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

}  // namespace
}  // namespace zorvane
