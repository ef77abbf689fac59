#include "core/agent/session_launch.h"

#include <gtest/gtest.h>

namespace zorvane {
namespace {

std::vector<std::string> splitLines(const std::string& text) {
  std::vector<std::string> lines;
  size_t start = 0;
  for (size_t nl; (nl = text.find('\n', start)) != std::string::npos; start = nl + 1) {
    lines.push_back(text.substr(start, nl - start));
  }
  lines.push_back(text.substr(start));
  return lines;
}

// The stand-in agent accepts only the full argument list (see ClaudeSession's and the
// selftest's tests); here, what changes with the options: a resumed conversation reuses
// the id instead of claiming it, the model and tool server appear only when given, and odd
// paths stay one untouched argument.
TEST(SessionLaunch, ResumeModelAndToolServerArguments) {
  UUID id = *UUID::parse("E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
  std::string odd = "/tmp/a \"b\" \\c/mcp.json";
  auto resumed = SessionLaunch::arguments(id, true, "p", "{}", odd, std::string("opus"));
  EXPECT_EQ(std::vector<std::string>(resumed.begin(), resumed.begin() + 5),
            (std::vector<std::string>{"--mcp-config", odd, "--strict-mcp-config", "--model", "opus"}));
  auto resume = std::find(resumed.begin(), resumed.end(), "--resume");
  ASSERT_NE(resume, resumed.end());
  EXPECT_EQ(*(resume + 1), "e621e1f8-c36c-495a-93fc-0c247a3e6e5f");
  EXPECT_EQ(std::count(resumed.begin(), resumed.end(), "--session-id"), 0);
  auto plain = SessionLaunch::arguments(id, false, "p", "{}", std::nullopt, std::string());
  EXPECT_EQ(std::count(plain.begin(), plain.end(), "--model"), 0);
  EXPECT_EQ(std::count(plain.begin(), plain.end(), "--mcp-config"), 0);
}

// The allow list is the sorted read-only tools of our server, then the built-in ones.
TEST(SessionLaunch, SettingsAllowReadOnlyTools) {
  auto settings = parseJSON(SessionLaunch::settingsJSON());
  ASSERT_TRUE(settings);
  EXPECT_EQ((*settings)["permissions"]["allow"],
            (JSONValue{"mcp__zorvane__ask_piece", "mcp__zorvane__browser_read_page",
                       "mcp__zorvane__get_target_info", "mcp__zorvane__list_pieces",
                       "mcp__zorvane__list_schedules", "mcp__zorvane__list_targets",
                       "mcp__zorvane__read_ui_tree", "mcp__zorvane__screenshot",
                       "mcp__zorvane__tell_piece", "Read", "Glob", "Grep", "LS", "WebFetch",
                       "WebSearch"}));
  auto config = parseJSON(*SessionLaunch::mcpConfig("/opt/z ane/zorvane", "/s/scope.json"));
  ASSERT_TRUE(config);
  EXPECT_EQ(*config, (JSONValue{{"mcpServers",
                                 {{"zorvane",
                                   {{"command", "/opt/z ane/zorvane"},
                                    {"args", {"--mcp", "--scope", "/s/scope.json"}}}}}}}));
}

// A folder alone gets seven lines; a drivable tentacle adds the window paragraph; the
// web-page line depends only on the bonded target.
TEST(SessionLaunch, SystemPromptFollowsTargetAndTentacles) {
  Target folder = Target::folder(URL::fileURL("/home/u/Reports", true));
  auto lines = splitLines(SessionLaunch::systemPrompt(folder, {}));
  ASSERT_EQ(lines.size(), 7u);
  EXPECT_EQ(lines[0], "You are Zorvane, an agent bonded to Reports (folder: /home/u/Reports).");
  EXPECT_EQ(lines[2], "(none yet)");
  EXPECT_EQ(lines[6], SessionLaunch::skillUpkeep);

  Target tab = Target::browserTab(BrowserApp::chromium, 7, *URL::parse("https://example.org/a#x"), "Docs");
  Target window = Target::window(42, 99, "org.gnome.TextEditor", "Text Editor", "");
  auto withTentacles = splitLines(SessionLaunch::systemPrompt(folder, {tab, window}));
  ASSERT_EQ(withTentacles.size(), 9u);
  EXPECT_EQ(withTentacles[2], "- browser tab: https://example.org/a#x");
  EXPECT_EQ(withTentacles[3], "- app window: org.gnome.TextEditor pid 42 window 99");
  EXPECT_TRUE(withTentacles[8].starts_with("You can see and drive windows"));

  auto onTab = splitLines(SessionLaunch::systemPrompt(tab, {}));
  ASSERT_EQ(onTab.size(), 9u);
  EXPECT_TRUE(onTab[7].starts_with("You can see and drive windows"));
  EXPECT_TRUE(onTab[8].starts_with("For web pages prefer browser_read_page"));
}

}  // namespace
}  // namespace zorvane
