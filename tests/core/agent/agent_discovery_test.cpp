#include "core/agent/agent_discovery.h"

#include <gtest/gtest.h>

#include <map>
#include <set>

namespace zorvane {
namespace {

// Fixed folders come first in their order; node versions follow newest first by number.
TEST(AgentDiscovery, SearchesFoldersInPreferenceOrder) {
  std::map<std::string, std::vector<std::string>> tree = {
      {"/h/.nvm/versions/node", {"v9.11.2", "v20.1.0", "v20.10.0", "v18.0.0"}},
      {"/h/.local/share/fnm/node-versions", {"v22.3.0"}},
  };
  auto folders = AgentDiscovery::searchDirectories("/h", [&](const std::string& path) {
    auto it = tree.find(path);
    return it == tree.end() ? std::vector<std::string>{} : it->second;
  });
  std::vector<std::string> expected = {
      "/h/.local/bin", "/opt/homebrew/bin", "/usr/local/bin", "/h/.claude/local", "/h/.bun/bin",
      "/h/.npm-global/bin", "/h/.volta/bin", "/h/.opencode/bin", "/h/.cargo/bin", "/h/bin",
      "/h/.nvm/versions/node/v20.10.0/bin", "/h/.nvm/versions/node/v20.1.0/bin",
      "/h/.nvm/versions/node/v18.0.0/bin", "/h/.nvm/versions/node/v9.11.2/bin",
      "/h/.local/share/fnm/node-versions/v22.3.0/installation/bin"};
  EXPECT_EQ(folders, expected);

  EXPECT_LT(AgentDiscovery::compareNumerically("v9", "v20"), 0);
  EXPECT_GT(AgentDiscovery::compareNumerically("v20.10", "v20.9"), 0);
  EXPECT_EQ(AgentDiscovery::compareNumerically("v007", "v7"), 0);
  EXPECT_LT(AgentDiscovery::compareNumerically("v1", "v1.0"), 0);
}

// The first folder with any of a kind's names wins over a preferred name further on;
// results keep catalogue order; kinds without names never match.
TEST(AgentDiscovery, FindsTheFirstHitPerKind) {
  std::set<std::string> executables = {"/late/pi", "/early/omp", "/late/codex", "/early/claude",
                                       "/late/claude", "/early/gemini"};
  auto found = AgentDiscovery::discover(
      {AgentKind::claude(), AgentKind::codex(), AgentKind::pi(), AgentKind::apple()},
      {"/early", "/late"}, [&](const std::string& p) { return executables.count(p) > 0; });
  ASSERT_EQ(found.size(), 3u);
  EXPECT_EQ(found[0], (InstalledAgent{AgentKind::claude(), "/early/claude"}));
  EXPECT_EQ(found[1], (InstalledAgent{AgentKind::codex(), "/late/codex"}));
  EXPECT_EQ(found[2], (InstalledAgent{AgentKind::pi(), "/early/omp"}));
  EXPECT_TRUE(AgentDiscovery::discover(AgentKind::all(), {}, [](const std::string&) { return true; }).empty());
  EXPECT_EQ(AgentKind::withID("pi"), AgentKind::pi());
  EXPECT_FALSE(AgentKind::withID("Claude")) << "ids are matched exactly";
}

// Flags are found by plain substring, in the required order.
TEST(AgentDiscovery, ListsMissingFlags) {
  const auto& required = AgentDiscovery::claudeRequiredFlags();
  EXPECT_EQ(AgentDiscovery::missingFlags("", required), required);
  std::string help = "--print --output-format --input-format --session-id --resumeable "
                     "--mcp-config --append-system-prompt";  // --resume only inside another word
  EXPECT_EQ(AgentDiscovery::missingFlags(help, required), (std::vector<std::string>{"--settings"}));
}

}  // namespace
}  // namespace zorvane
