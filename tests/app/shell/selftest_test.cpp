#include <gtest/gtest.h>
#include <sys/stat.h>

#include <regex>

#include "core/base/json_value.h"
#include "support/run_zorvane.h"
#include "support/test_support.h"

namespace zorvane {
namespace {

using testing::ProcessRun;
using testing::runZorvane;

const std::string kFixtureBin = testing::fixtureBin();

// With the stand-ins in the user's own bin folder, --discover lists them in catalogue
// order, each driveable, and a selftest finds its agent there.
TEST(Selftest, DiscoversAndDrivesEveryAgent) {
  testing::TempDir home, folder;
  folder.write("a.txt", "hello");
  for (const char* agent : {"pi", "codex", "claude"}) {
    std::string link = home.file(".local/bin/") + agent;
    ::mkdir(home.file(".local").c_str(), 0755);
    ::mkdir(home.file(".local/bin").c_str(), 0755);
    ASSERT_EQ(::symlink((kFixtureBin + "/" + agent).c_str(), link.c_str()), 0);
  }
  ProcessRun listing = runZorvane({"--discover"}, "/usr/bin:/bin", home.path());
  EXPECT_EQ(listing.code, 0);
  EXPECT_EQ(listing.out, "claude\t" + home.file(".local/bin/claude") + "\tready\n" +
                         "codex\t" + home.file(".local/bin/codex") + "\tready\n" +
                         "pi\t" + home.file(".local/bin/pi") + "\tready\n");

  ProcessRun run = runZorvane({"--selftest", folder.path(), "Say hello.", "--agent", "pi"}, "/usr/bin:/bin",
                              home.path());
  EXPECT_EQ(run.code, 0) << run.out << run.err;
  EXPECT_TRUE(run.out.starts_with("target: folder:" + folder.path() + " agent: pi")) << run.out;
  EXPECT_TRUE(run.out.ends_with("\noutcome: answer(echo: Say hello. (turn 1))\n")) << run.out;
}

// The default prompt, with each stand-in: the agent, started in the folder and told of its
// target, starts `zorvane --mcp` from the configuration it was given and calls
// run_command, which renames the file; the lines are mirrored to --out. The tool
// server of every agent asks the application first (a `gate:` line); Claude Code also
// asks through its own permission request before (a `permission:` line, with what the
// policy decides), Codex and Pi have none.
TEST(Selftest, RenamesTheFileThroughTheToolServerWithEachAgent) {
  struct Case {
    std::string agent;
    std::string approvalLine;
    std::string otherApproval;  // codex, pi: must not appear; claude: the tool server asks after it
  };
  const std::string call = R"({"command":"mv a.txt b.txt","why":"Rename a.txt to b.txt"})";
  const std::vector<Case> cases = {
      {"claude", "\npermission: mcp__zorvane__run_command ", "\ngate: approve mcp__zorvane__run_command"},
      {"codex", "\ngate: approve mcp__zorvane__run_command " + call + "\n", "\npermission: "},
      {"pi", "\ngate: approve mcp__zorvane__run_command " + call + "\n", "\npermission: "},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.agent);
    testing::TempDir home, folder;
    folder.write("a.txt", "hello");
    ProcessRun run = runZorvane({"--selftest", folder.path(), "--agent", c.agent, "--out", home.file("out.log")},
                                kFixtureBin + ":/usr/bin:/bin", home.path(), {{"STANDIN_LOG_DIR", home.file("log")}});
    EXPECT_EQ(run.code, 0) << run.out << run.err;
    EXPECT_EQ(testing::readAll(home.file("out.log")), run.out);
    std::string prefix = c.agent == "claude" ? "" : c.agent + "-";
    auto launch = parseJSON(testing::readAll(home.file("log/" + prefix + "start-1.json")));
    ASSERT_TRUE(launch);
    if (c.agent == "claude") EXPECT_EQ((*launch)["cwd"], folder.path());
    EXPECT_NE((*launch)["argv"].dump().find("You are Zorvane, an agent bonded to"), std::string::npos);
    EXPECT_TRUE(run.out.starts_with("target: folder:" + folder.path() + " agent: " + c.agent)) << run.out;
    EXPECT_NE(run.out.find("\ntool: mcp__zorvane__run_command\n"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find(c.approvalLine), std::string::npos) << run.out;
    if (c.agent == "claude") {
      EXPECT_LT(run.out.find(c.approvalLine), run.out.find(c.otherApproval)) << run.out;
    } else {
      EXPECT_EQ(run.out.find(c.otherApproval), std::string::npos) << run.out;
    }
    EXPECT_EQ(run.out.find("tool error"), std::string::npos) << run.out;
    EXPECT_TRUE(run.out.ends_with("\noutcome: answer(DONE)\n")) << run.out << run.err;
    struct stat info {};
    EXPECT_NE(::stat(folder.file("a.txt").c_str(), &info), 0) << "a.txt is still there";
    EXPECT_EQ(testing::readAll(folder.file("b.txt")), "hello");
  }
}

// The run's scope, MCP configuration and socket live in a fresh private folder, not one
// whose name another local user could guess and make first: a folder planted under the
// old fixed name, with a scope that turns the gate off, is left alone, the gate still
// asks, and the run's own folder is gone when it ends.
TEST(Selftest, KeepsItsSessionInAFreshPrivateFolder) {
  testing::TempDir home, folder;
  folder.write("a.txt", "hello");
  const std::string planted = home.file("zorvane-selftest-codex");
  const std::string plantedScope = R"({"entries":[],"gate":false})";
  home.write("zorvane-selftest-codex/scope.json", plantedScope);
  ::chmod(planted.c_str(), 0777);
  ProcessRun run = runZorvane({"--selftest", folder.path(), "--agent", "codex"}, kFixtureBin + ":/usr/bin:/bin",
                              home.path(), {{"STANDIN_LOG_DIR", home.file("log")}});
  EXPECT_EQ(run.code, 0) << run.out << run.err;
  EXPECT_NE(run.out.find("\ngate: approve mcp__zorvane__run_command "), std::string::npos) << run.out;
  EXPECT_EQ(testing::readAll(planted + "/scope.json"), plantedScope);

  std::string start = testing::readAll(home.file("log/codex-start-1.json"));
  std::smatch found;
  ASSERT_TRUE(std::regex_search(start, found, std::regex(home.path() + "/zorvane-selftest-[A-Za-z0-9]{6}")))
      << start;
  const std::string session = found.str();
  EXPECT_TRUE(std::regex_search(start, std::regex(session + "/[0-9A-F-]{36}/scope.json"))) << start;
  EXPECT_EQ((*parseJSON(start))["env"]["ZORVANE_IPC_SOCK"], session + "/ipc.sock");
  struct stat info {};
  EXPECT_NE(::lstat(session.c_str(), &info), 0) << "the run's own folder is removed at its end";
}

// Every way a selftest can't start gives one clear line and a non-zero exit.
TEST(Selftest, RefusesWhatItCantRun) {
  testing::TempDir home, folder, emptyBin, brokenBin;
  struct Case {
    std::vector<std::string> args;
    std::string path;
    std::string firstLine;
  };
  // A "claude" whose interpreter doesn't exist: found on PATH, but can't be started.
  brokenBin.write("claude", "#!/nonexistent/interpreter\n");
  ::chmod(brokenBin.file("claude").c_str(), 0755);
  const std::vector<Case> cases = {
      {{"--selftest", folder.file("nope")}, kFixtureBin, "selftest: the folder " + folder.file("nope") + " doesn't exist"},
      {{"--selftest"}, kFixtureBin, "selftest: nothing to work on"},
      {{"--selftest", folder.path()}, emptyBin.path(), "agent not found: claude"},
      {{"--selftest", folder.path(), "--agent", "nosuchagent"}, kFixtureBin, "agent not found: nosuchagent"},
      {{"--selftest", folder.path()}, brokenBin.path(),
       "start failed: Couldn't start Claude Code: Couldn't start " + brokenBin.file("claude")},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::PrintToString(c.args));
    ProcessRun run = runZorvane(c.args, c.path, home.path());
    EXPECT_EQ(run.code, 1);
    EXPECT_TRUE(run.out.find(c.firstLine) != std::string::npos) << run.out;
    EXPECT_EQ(std::count(run.out.begin(), run.out.end(), '\n'), c.firstLine.starts_with("start failed") ? 2 : 1)
        << "one line, after the target line when the agent was found: " << run.out;
  }
}

}  // namespace
}  // namespace zorvane
