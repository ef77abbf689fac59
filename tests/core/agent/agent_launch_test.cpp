#include "core/agent/agent_launch.h"

#include <gtest/gtest.h>

namespace zorvane {
namespace {

AgentLaunch launchFor(const AgentKind& kind, std::optional<std::string> model = std::nullopt) {
  return AgentLaunch{kind,       "/bin/tool",  std::move(model), "/work/my \"dir\"", "/s/sess",
                     "/s/sess/sc\\ope \"1\".json", "/opt/zorvane/zorvane", "SYSTEM"};
}

// Codex: the fixed head, the tool server quoted for its config syntax, the system prompt
// glued to the first prompt only, and resume with the bare prompt.
TEST(AgentLaunch, CodexArguments) {
  AgentLaunch launch = launchFor(AgentKind::codex(), "gpt-5");
  auto first = launch.codexArguments("do it", std::nullopt);
  std::vector<std::string> head = {
      "exec", "--json", "--skip-git-repo-check", "-s", "read-only", "-C", "/work/my \"dir\"",
      "-c", "mcp_servers.zorvane.command=\"/opt/zorvane/zorvane\"",
      "-c", R"(mcp_servers.zorvane.args=["--mcp", "--scope", "/s/sess/sc\\ope \"1\".json"])",
      "-c", "mcp_servers.zorvane.default_tools_approval_mode=\"approve\"",
      "-c", "mcp_servers.zorvane.env_vars=[\"ZORVANE_IPC_SOCK\"]",
      "-c", "mcp_servers.zorvane.tool_timeout_sec=900", "-m", "gpt-5"};
  auto expectedFirst = head;
  expectedFirst.push_back("SYSTEM\n\n---\n\ndo it");
  EXPECT_EQ(first, expectedFirst);

  auto resumed = launchFor(AgentKind::codex()).codexArguments("next", std::string("thread-1"));
  ASSERT_GE(resumed.size(), 3u);
  EXPECT_EQ(std::vector<std::string>(resumed.end() - 3, resumed.end()),
            (std::vector<std::string>{"resume", "thread-1", "next"}));
  EXPECT_EQ(std::count(resumed.begin(), resumed.end(), "-m"), 0);
  auto dashed = launchFor(AgentKind::codex()).codexArguments("-v is what flag?", std::string("thread-1"));
  EXPECT_EQ(std::vector<std::string>(dashed.end() - 4, dashed.end()),
            (std::vector<std::string>{"resume", "thread-1", "--", "-v is what flag?"}))
      << "a prompt that looks like an option stays the prompt";
}

// Pi: the extension, an allow-list of exact tool names, the system prompt every turn,
// and --session with the tool's own id; the prompt always last.
TEST(AgentLaunch, PiArguments) {
  AgentLaunch launch = launchFor(AgentKind::pi());
  auto args = launch.piArguments("hello", std::string("sess-9"));
  ASSERT_EQ(args.size(), 14u);
  EXPECT_EQ(std::vector<std::string>(args.begin(), args.begin() + 5),
            (std::vector<std::string>{"-p", "--mode", "json", "-e", "/opt/zorvane/pi-extension/zorvane-mcp.ts"}));
  EXPECT_EQ(args[5], "--tools");
  EXPECT_TRUE(args[6].starts_with("read,mcp__zorvane__list_targets,mcp__zorvane__get_target_info,"));
  EXPECT_TRUE(args[6].ends_with(",mcp__zorvane__create_schedule,mcp__zorvane__delete_schedule"));
  EXPECT_EQ(std::count(args[6].begin(), args[6].end(), ','), 22);
  EXPECT_EQ(std::vector<std::string>(args.begin() + 7, args.end()),
            (std::vector<std::string>{"--session-dir", "/s/sess/pi-sessions", "--append-system-prompt", "SYSTEM",
                                      "--session", "sess-9", "hello"}));

  auto firstWithModel = launchFor(AgentKind::pi(), "sonnet").piArguments("--looks-like-a-flag", std::nullopt);
  EXPECT_EQ(std::count(firstWithModel.begin(), firstWithModel.end(), "--session"), 0);
  EXPECT_EQ(std::vector<std::string>(firstWithModel.end() - 3, firstWithModel.end()),
            (std::vector<std::string>{"--model", "sonnet", " --looks-like-a-flag"}))
      << "a prompt that looks like an option or a file stays a prompt";
  EXPECT_EQ(launch.piArguments("@notes.txt", std::nullopt).back(), " @notes.txt");
  EXPECT_FALSE(launchFor(AgentKind::claude()).gated());
  EXPECT_TRUE(launch.gated());
}

}  // namespace
}  // namespace zorvane
