#include "app/shell/command_line.h"

#include <gtest/gtest.h>

#include "support/test_support.h"

namespace zorvane {
namespace {

// The first mode flag in the fixed order wins, wherever it stands, argument 0 included.
TEST(CommandLine, ChoosesTheRunMode) {
  struct Case {
    std::vector<std::string> args;
    RunMode mode;
  };
  const std::vector<Case> cases = {
      {{"zorvane"}, RunMode::application},
      {{"zorvane", "--selftest", "/x", "--discover", "--mcp"}, RunMode::toolServer},
      {{"zorvane", "--discover", "--cloud-test"}, RunMode::cloudTest},
      {{"zorvane", "--selftest-window", "1", "x", "--discover"}, RunMode::discover},
      {{"zorvane", "--selftest-window"}, RunMode::selftest},
      {{"--mcp"}, RunMode::toolServer},
      {{"zorvane", "--MCP", "-mcp", "--mcp=1"}, RunMode::application},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::PrintToString(c.args));
    EXPECT_EQ(CommandLine(c.args).mode(), c.mode);
  }
  CommandLine values({"zorvane", "--agent", "codex", "--agent", "pi", "--out"});
  EXPECT_EQ(values.value("--agent"), "codex") << "the first occurrence counts";
  EXPECT_EQ(values.value("--out"), std::nullopt) << "a flag at the end has no value";
}

// The selftest's target and prompt: window and browser forms, the folder form, default
// prompts when the next argument is a flag, and clear refusals.
TEST(CommandLine, MakesTheSelftestPlan) {
  testing::TempDir dir;
  auto tab = makeSelftestPlan(CommandLine({"z", "--selftest-window", "123", "com.google.Chrome"}));
  ASSERT_TRUE(tab) << tab.error();
  EXPECT_EQ(tab->target, Target::browserTab(BrowserApp::chrome, 123, *URL::parse("about:blank"), ""));
  EXPECT_EQ(tab->prompt, kSelftestWindowPrompt);

  auto window = makeSelftestPlan(
      CommandLine({"z", "--selftest-window", "123", "com.apple.finder", "Describe it", "--agent"}));
  ASSERT_TRUE(window);
  EXPECT_EQ(window->target, Target::window(0, 123, "com.apple.finder", "com.apple.finder", ""));
  EXPECT_EQ(window->prompt, "Describe it");
  EXPECT_EQ(window->agentID, "claude");

  auto folder = makeSelftestPlan(
      CommandLine({"z", "--selftest", dir.path(), "--agent", "codex", "--out", "/tmp/o"}));
  ASSERT_TRUE(folder);
  EXPECT_EQ(folder->target.targetKey(), "folder:" + dir.path());
  EXPECT_EQ(folder->prompt, kSelftestFolderPrompt);
  EXPECT_EQ(folder->agentID, "codex");
  EXPECT_EQ(folder->outPath, "/tmp/o");

  // A window form without a valid number falls back to the folder form beside it.
  auto fallback = makeSelftestPlan(
      CommandLine({"z", "--selftest-window", "-1", "x", "--selftest", dir.path(), "Say hi"}));
  ASSERT_TRUE(fallback);
  EXPECT_EQ(fallback->prompt, "Say hi");

  EXPECT_EQ(makeSelftestPlan(CommandLine({"z", "--selftest"})).error(),
            "selftest: nothing to work on: give --selftest <folder> [prompt] or "
            "--selftest-window <windowID> <browser-or-app> [prompt]");
  EXPECT_FALSE(makeSelftestPlan(CommandLine({"z", "--selftest-window", "4294967296", "x"})));
  EXPECT_EQ(makeSelftestPlan(CommandLine({"z", "--selftest", dir.file("missing")})).error(),
            "selftest: the folder " + dir.file("missing") + " doesn't exist");
}

}  // namespace
}  // namespace zorvane
