#include "app/shell/onboarding_controller.h"

#include <gtest/gtest.h>

#include "core/base/settings.h"
#include "support/card_fixtures.h"

namespace zorvane {
namespace {

using testing::GuideWorld;
constexpr auto agent = &GuideWorld::agent;

OnboardingPermissionRow permissionRow(const GuideWorld& world, size_t index) {
  return world.guide->model().permissionRows().at(index);
}

// A permission switched on outside the guide turns its row within the next poll; a
// grant that doesn't take says what to do, and the screen's note asks for a restart
// only after the user asked.
TEST(OnboardingController, PermissionsFollowTheDesktop) {
  GuideWorld world;
  int changes = 0;
  world.guide->model().onChange = [&changes] { ++changes; };
  world.guide->show();
  world.waitForAgents();
  EXPECT_TRUE(world.panel->visible);
  EXPECT_TRUE(world.panel->isKey);
  Rect band = world.notch->notchRect();
  EXPECT_EQ(world.panel->frame.y, band.maxY());
  EXPECT_EQ(world.panel->frame.x + world.panel->frame.width / 2, band.x + band.width / 2);
  for (size_t i = 0; i < 3; ++i) {
    SCOPED_TRACE(i);
    EXPECT_FALSE(permissionRow(world, i).granted) << "automation never asked shows as not granted";
    EXPECT_EQ(permissionRow(world, i).image, "circle.dashed");
  }
  EXPECT_EQ(permissionRow(world, 0).button, "Grant");
  EXPECT_EQ(permissionRow(world, 2).button, "Allow");
  EXPECT_EQ(world.guide->model().relaunchNote(), std::nullopt);

  int before = changes;
  world.ax = true;
  world.pass(1.0);
  EXPECT_TRUE(permissionRow(world, 0).granted);
  EXPECT_EQ(permissionRow(world, 0).image, "checkmark.circle.fill");
  EXPECT_EQ(permissionRow(world, 0).button, std::nullopt);
  EXPECT_EQ(changes, before + 1);
  world.pass(3.0);
  EXPECT_EQ(changes, before + 1) << "the poll tells only of changes";

  world.guide->grantScreen();
  EXPECT_TRUE(world.guide->model().screenRequested);
  EXPECT_EQ(world.guide->model().relaunchNote(), "Turned it on? Zorvane needs to restart for this one.");
  world.screen = true;
  world.pass(1.0);
  EXPECT_TRUE(permissionRow(world, 1).granted);
  EXPECT_EQ(world.guide->model().relaunchNote(), std::nullopt);

  world.ax = false;
  world.pass(1.0);
  world.guide->grantAX();
  ASSERT_TRUE(permissionRow(world, 0).help);
  EXPECT_NE(permissionRow(world, 0).help->find("at-spi2-core"), std::string::npos);

  // Automation: no file manager on the bus and no browser window to read.
  world.guide->grantAutomation();
  EXPECT_EQ(world.guide->model().automation, false);
  ASSERT_TRUE(permissionRow(world, 2).help);
  EXPECT_NE(permissionRow(world, 2).help->find("org.freedesktop.FileManager1"), std::string::npos);
  EXPECT_NE(permissionRow(world, 2).help->find("--remote-debugging-port"), std::string::npos);
  // A file manager answers and a browser's tab can be read.
  world.fakes.fileManager.currentOwner = FileManagerOwner{600, nullptr};
  auto& windows = world.fakes.desktop.windows;
  windows.applications = {{700, {"org.chromium.Chromium", "Chromium"}}};
  windows.windowList = {{40, 700, 0, 100, 800, 600, 0, "Example - Chromium", true}};
  world.fakes.desktop.browsers.frontTabAnswer = "https://example.com/\nExample";
  world.guide->grantAutomation();
  EXPECT_EQ(world.guide->model().automation, true);
  EXPECT_TRUE(permissionRow(world, 2).granted);
  EXPECT_EQ(permissionRow(world, 2).help, std::nullopt);
}

// Every step can be passed with nothing granted and no agent; finishing sets
// "onboarded", stops the poll and puts the guide away. No text names another system.
TEST(OnboardingController, WalksToTheEndWithNothingGranted) {
  GuideWorld world;
  bool finished = false;
  world.guide->onFinish = [&] { finished = true; };
  world.guide->show();
  world.waitForAgents();
  const OnboardingModel& model = world.guide->model();
  std::vector<std::string> forward;
  std::vector<bool> backs;
  for (int i = 0; i < OnboardingModel::kStepCount; ++i) {
    forward.push_back(model.forwardTitle());
    backs.push_back(model.showsBack());
    world.guide->next();
  }
  EXPECT_EQ(model.step, OnboardingModel::kStepCount - 1) << "next on the last step goes nowhere";
  EXPECT_EQ(forward, (std::vector<std::string>{"Get started", "Continue", "Continue", "Continue",
                                               "Start using Zorvane"}));
  EXPECT_EQ(backs, (std::vector<bool>{false, true, true, true, false}));
  world.guide->back();
  EXPECT_EQ(model.step, 3);
  world.guide->next();
  ASSERT_TRUE(model.forwardFinishes());

  world.guide->finish();
  EXPECT_EQ(Settings(world.settingsPath()).boolValue(SettingsKey::onboarded), true);
  EXPECT_FALSE(world.guide->isPolling());
  EXPECT_FALSE(finished) << "the goo draws back first";
  world.pass(0.5);
  EXPECT_TRUE(finished);
  EXPECT_FALSE(world.panel->visible);

  std::vector<std::string> texts;
  for (const OnboardingPage& page : OnboardingModel::pages()) {
    texts.push_back(page.title);
    texts.insert(texts.end(), page.paragraphs.begin(), page.paragraphs.end());
  }
  for (const OnboardingTip& tip : OnboardingModel::tips()) texts.push_back(tip.text);
  for (const OnboardingPermissionRow& row : model.permissionRows()) texts.push_back(row.text);
  texts.push_back(model.agentRow().text.value_or(""));
  for (const std::string& text : texts)
    for (const char* word : {"Mac", "notch", "Finder", "Terminal", "System Settings", "Apple", "\u2325"})
      EXPECT_EQ(text.find(word), std::string::npos) << text;
}

// The agent row: looking while discovery runs, then not found (with the install command
// to copy), too old, ready, and the other agents found.
TEST(OnboardingController, AgentRowTellsWhatDiscoveryFound) {
  GuideWorld world;
  std::vector<std::vector<InstalledAgent>> reported;
  world.guide->onAgentsChanged = [&](const std::vector<InstalledAgent>& list) { reported.push_back(list); };

  world.guide->show();
  EXPECT_EQ(world.guide->model().agentRow().kind, OnboardingAgentRow::Kind::looking);
  EXPECT_EQ(world.guide->model().agentRow().title, "Looking for agents\u2026");
  world.waitForAgents();
  OnboardingAgentRow row = world.guide->model().agentRow();
  EXPECT_EQ(row.kind, OnboardingAgentRow::Kind::notFound);
  EXPECT_EQ(row.title, "Claude Code not found");
  EXPECT_TRUE(row.checkAgain);
  EXPECT_EQ(row.alsoFound, std::nullopt);
  world.guide->copyInstall();
  EXPECT_EQ(world.copied, (std::vector<std::string>{AgentKind::claude().installHint}));

  auto check = [&](std::vector<InstalledAgent> found, std::vector<std::string> missing) {
    world.setAgents(std::move(found), std::move(missing));
    world.guide->recheck();
    world.waitForAgents();
    return world.guide->model().agentRow();
  };
  row = check({agent(AgentKind::claude())}, {"--permission-prompt-tool"});
  EXPECT_EQ(row.kind, OnboardingAgentRow::Kind::tooOld);
  EXPECT_EQ(row.text, "Too old. Run `claude update` in a terminal.");
  EXPECT_EQ(world.guide->model().missingFlags, (std::vector<std::string>{"--permission-prompt-tool"}));

  row = check({agent(AgentKind::claude()), agent(AgentKind::codex()), agent(AgentKind::pi())}, {});
  EXPECT_EQ(row.kind, OnboardingAgentRow::Kind::ready);
  EXPECT_EQ(row.title, "Claude Code");
  EXPECT_FALSE(row.copyText);
  EXPECT_EQ(row.alsoFound, "Also found: Codex, Pi. Support for these is coming.");

  // The flags are checked only for the resident tool found first.
  row = check({agent(AgentKind::codex())}, {"--permission-prompt-tool"});
  EXPECT_EQ(row.kind, OnboardingAgentRow::Kind::notFound);
  EXPECT_TRUE(world.guide->model().missingFlags.empty());
  EXPECT_EQ(row.alsoFound, "Also found: Codex. Support for these is coming.");

  ASSERT_EQ(reported.size(), 4u);
  EXPECT_EQ(reported.back(), (std::vector<InstalledAgent>{agent(AgentKind::codex())}));
}

}  // namespace
}  // namespace zorvane
