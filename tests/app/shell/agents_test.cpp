#include "app/shell/agents.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "app/shell/discover.h"
#include "core/base/file_io.h"
#include "support/test_support.h"

namespace zorvane {
namespace {

void writeTool(const testing::TempDir& dir, const std::string& name, const std::string& script) {
  std::string path = dir.write(name, "#!/bin/sh\n" + script + "\n");
  ::chmod(path.c_str(), 0755);
}

// Tools in the user's folders are found in catalogue order, the preferred folder first;
// a tool only the login shell knows still stands at its catalogue place; files that
// can't run don't count.
TEST(Agents, DiscoversToolsOnThisMachine) {
  testing::TempHome home;
  testing::TempDir shellOnly;
  auto makeTool = [](const std::string& path, mode_t mode = 0755) {
    ASSERT_TRUE(writeFileAtomically(path, "#!/bin/sh\necho hi\n"));
    ::chmod(path.c_str(), mode);
  };
  std::string bin = home.path() + "/.local/bin";
  makeTool(bin + "/pi");
  makeTool(bin + "/aider");
  makeTool(bin + "/codex", 0644);  // not executable
  makeTool(home.path() + "/.cargo/bin/claude");
  makeTool(shellOnly.path() + "/codex");
  // The login shell reads the profile, which puts the extra folder on its PATH and
  // greets: output that isn't a path is ignored.
  ASSERT_TRUE(writeFileAtomically(home.path() + "/.profile",
                                  "export PATH=\"" + shellOnly.path() + ":$PATH\"\necho 'Welcome back!'\n"));
  testing::ScopedEnv shell("SHELL", std::string("/bin/sh"));
  testing::ScopedEnv path("PATH", std::string("/usr/bin:/bin"));

  auto found = Agents::discover();
  std::vector<std::string> seen;
  for (const auto& agent : found) seen.push_back(agent.kind.id + "=" + agent.path);
  EXPECT_EQ(seen, (std::vector<std::string>{"claude=" + home.path() + "/.cargo/bin/claude",
                                            "codex=" + shellOnly.path() + "/codex", "pi=" + bin + "/pi",
                                            "aider=" + bin + "/aider"}));
}

// The status column, the lines --discover prints (the tools found, then each tool it can
// drive that isn't here, with its install command), and the shell runner's limits: a
// missing program gives nothing, a program that hangs is stopped at the time limit with
// what it printed so far.
TEST(Agents, StatusAndShellLimits) {
  testing::TempDir dir;
  writeTool(dir, "old-claude", "echo '--print --output-format --input-format --session-id --mcp-config'");
  writeTool(dir, "new-claude", "echo '--print --output-format --input-format --session-id --resume --mcp-config "
                               "--settings --append-system-prompt'");
  writeTool(dir, "hang", "echo started; printf '\\377\\n'; exec sleep 30");

  EXPECT_EQ(discoveryStatus({AgentKind::claude(), dir.file("old-claude")}, Agents::missingClaudeFlags),
            R"(missing ["--resume", "--settings", "--append-system-prompt"])");
  EXPECT_EQ(discoveryStatus({AgentKind::claude(), dir.file("new-claude")}, Agents::missingClaudeFlags), "ready");
  EXPECT_EQ(discoveryStatus({*AgentKind::withID("gemini"), "/x/gemini"}, Agents::missingClaudeFlags), "found");
  EXPECT_EQ(discoveryStatus({AgentKind::codex(), "/x/codex"}, Agents::missingClaudeFlags), "ready");
  EXPECT_EQ(Agents::missingClaudeFlags("/nonexistent/claude").size(), 8u);

  EXPECT_EQ(discoveryLines({{AgentKind::codex(), "/x/codex"}, {*AgentKind::withID("gemini"), "/x/gemini"}},
                           Agents::missingClaudeFlags),
            (std::vector<std::string>{"codex\t/x/codex\tready", "gemini\t/x/gemini\tfound",
                                      "claude\t-\tmissing: " + AgentKind::claude().installHint,
                                      "pi\t-\tmissing: " + AgentKind::pi().installHint}));
  EXPECT_EQ(discoveryLines({}, Agents::missingClaudeFlags),
            (std::vector<std::string>{"claude\t-\tmissing: " + AgentKind::claude().installHint,
                                      "codex\t-\tmissing: " + AgentKind::codex().installHint,
                                      "pi\t-\tmissing: " + AgentKind::pi().installHint}));

  EXPECT_EQ(Agents::shell("/nonexistent/tool", {}), "");
  EXPECT_EQ(Agents::shell(dir.file("hang"), {}, 2), "started\n\xEF\xBF\xBD\n");
}

}  // namespace
}  // namespace zorvane
