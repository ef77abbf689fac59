#include "core/agent/agent_launch.h"

#include <gtest/gtest.h>

namespace zorvane {
namespace {

AgentLaunch launchFor(const AgentKind& kind, std::optional<std::string> model = std::nullopt) {
  return AgentLaunch{kind,       "/bin/tool",  std::move(model), "/work/my \"dir\"", "/s/sess",
                     "/s/sess/sc\\ope \"1\".json", "/opt/zorvane/zorvane", "SYSTEM"};
}

// The strict stand-ins check the whole argument lists in the turn-session tests; here,
// what they can't see: a scope path with quotes and backslashes stays one value in Codex's
// config syntax, the system prompt goes with Codex's first prompt only, and a prompt that
// looks like an option or a file stays a prompt.
TEST(AgentLaunch, ArgumentsKeepOddPathsAndPromptsWhole) {
  auto first = launchFor(AgentKind::codex(), "gpt-5").codexArguments("do it", std::nullopt);
  EXPECT_NE(std::find(first.begin(), first.end(),
                      R"(mcp_servers.zorvane.args=["--mcp", "--scope", "/s/sess/sc\\ope \"1\".json"])"),
            first.end());
  EXPECT_EQ(std::vector<std::string>(first.end() - 3, first.end()),
            (std::vector<std::string>{"-m", "gpt-5", "SYSTEM\n\n---\n\ndo it"}));
  auto dashed = launchFor(AgentKind::codex()).codexArguments("-v is what flag?", std::string("thread-1"));
  EXPECT_EQ(std::vector<std::string>(dashed.end() - 4, dashed.end()),
            (std::vector<std::string>{"resume", "thread-1", "--", "-v is what flag?"}));

  AgentLaunch pi = launchFor(AgentKind::pi());
  auto resumed = pi.piArguments("hello", std::string("sess-9"));
  EXPECT_EQ(std::vector<std::string>(resumed.end() - 3, resumed.end()),
            (std::vector<std::string>{"--session", "sess-9", "hello"}));
  auto firstWithModel = launchFor(AgentKind::pi(), "sonnet").piArguments("--looks-like-a-flag", std::nullopt);
  EXPECT_EQ(std::count(firstWithModel.begin(), firstWithModel.end(), "--session"), 0);
  EXPECT_EQ(std::vector<std::string>(firstWithModel.end() - 3, firstWithModel.end()),
            (std::vector<std::string>{"--model", "sonnet", " --looks-like-a-flag"}));
  EXPECT_EQ(pi.piArguments("@notes.txt", std::nullopt).back(), " @notes.txt");
  EXPECT_FALSE(launchFor(AgentKind::claude()).gated());
  EXPECT_TRUE(pi.gated());
}

}  // namespace
}  // namespace zorvane
