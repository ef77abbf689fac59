#include "ui/adapters/onboarding_adapter.h"

#include <gtest/gtest.h>

#include "core/base/settings.h"
#include "support/card_fixtures.h"
#include "ui/ink_test_scenes.h"

namespace zorvane {
namespace {

using testing::GuideWorld;

QVariant role(OnboardingPermissionRows* rows, int at, OnboardingPermissionRows::Role which) {
  return rows->data(rows->index(at), which);
}

// The page, the agent row, the permission rows and the footer follow the guide: a
// permission that turns changes its own row only; the buttons reach the guide.
TEST(OnboardingAdapter, FollowsTheGuideAndReachesIt) {
  std::string why;
  if (!testing::ensureGuiApplication(why)) GTEST_SKIP() << why;
  GuideWorld world;
  OnboardingAdapter adapter(world.guide);
  OnboardingPermissionRows* rows = adapter.permissions();
  int changed = 0;
  QObject::connect(&adapter, &OnboardingAdapter::changed, [&changed] { ++changed; });
  world.guide->show();
  EXPECT_EQ(adapter.agentState(), "looking");
  world.waitForAgents();
  EXPECT_GE(changed, 2);

  EXPECT_EQ(adapter.step(), 0);
  EXPECT_EQ(adapter.title(), "Drop an agent on anything.");
  EXPECT_EQ(adapter.paragraphs().size(), 2);
  EXPECT_FALSE(adapter.showsBack());
  EXPECT_EQ(adapter.forwardTitle(), "Get started");
  EXPECT_FALSE(adapter.showsAgent() || adapter.showsPermissions() || adapter.showsTips());
  EXPECT_EQ(adapter.tipTitles().size(), adapter.tipTexts().size());
  EXPECT_EQ(adapter.tipTitles().first(), "Pull & drop");

  // No agent: the install line to copy, and "Check again" finds it.
  adapter.forward();
  EXPECT_EQ(adapter.step(), 1);
  EXPECT_TRUE(adapter.showsAgent());
  EXPECT_TRUE(adapter.showsBack());
  EXPECT_EQ(adapter.forwardTitle(), "Continue");
  EXPECT_EQ(adapter.agentState(), "notFound");
  EXPECT_EQ(adapter.agentTitle(), "Claude Code not found");
  EXPECT_TRUE(adapter.showsCheckAgain());
  ASSERT_FALSE(adapter.copyText().isEmpty());
  adapter.copyInstall();
  EXPECT_EQ(world.copied, std::vector<std::string>{adapter.copyText().toStdString()});
  world.setAgents({GuideWorld::agent(AgentKind::claude()), GuideWorld::agent(AgentKind::codex())});
  adapter.recheck();
  world.waitForAgents();
  EXPECT_EQ(adapter.agentState(), "ready");
  EXPECT_EQ(adapter.copyText(), "");
  EXPECT_FALSE(adapter.showsCheckAgain());
  EXPECT_TRUE(adapter.alsoFound().contains("Codex"));

  // Permissions: a grant made outside turns its row within a poll, and only that row.
  adapter.forward();
  EXPECT_TRUE(adapter.showsPermissions());
  ASSERT_EQ(rows->rowCount(), 3);
  std::vector<int> rowsChanged;
  int resets = 0;
  QObject::connect(rows, &QAbstractItemModel::dataChanged,
                   [&rowsChanged](const QModelIndex& from) { rowsChanged.push_back(from.row()); });
  QObject::connect(rows, &QAbstractItemModel::modelReset, [&resets] { ++resets; });
  EXPECT_EQ(role(rows, 0, OnboardingPermissionRows::TitleRole), "Accessibility");
  EXPECT_EQ(role(rows, 0, OnboardingPermissionRows::ButtonRole), "Grant");
  EXPECT_EQ(role(rows, 0, OnboardingPermissionRows::GrantedRole), false);
  world.ax = true;
  world.pass(1.0);
  EXPECT_EQ(rowsChanged, std::vector<int>{0});
  EXPECT_EQ(role(rows, 0, OnboardingPermissionRows::GrantedRole), true);
  EXPECT_EQ(role(rows, 0, OnboardingPermissionRows::ImageRole), "checkmark.circle.fill");
  EXPECT_EQ(role(rows, 0, OnboardingPermissionRows::ButtonRole), "");

  // Each row's button asks for its own permission.
  adapter.grant(1);
  EXPECT_TRUE(world.guide->model().screenRequested);
  EXPECT_FALSE(adapter.relaunchNote().isEmpty());
  EXPECT_EQ(role(rows, 2, OnboardingPermissionRows::HelpRole), "");
  adapter.grant(2);
  EXPECT_EQ(world.guide->model().automation, false);
  EXPECT_TRUE(role(rows, 2, OnboardingPermissionRows::HelpRole).toString().contains("FileManager1"));
  adapter.grant(3);
  EXPECT_EQ(resets, 0);

  // Back, then on to the end, where the forward button finishes.
  adapter.back();
  EXPECT_EQ(adapter.step(), 1);
  for (int i = 0; i < 3; ++i) adapter.forward();
  EXPECT_EQ(adapter.step(), 4);
  EXPECT_FALSE(adapter.showsBack());
  EXPECT_EQ(adapter.forwardTitle(), "Start using Zorvane");
  EXPECT_NE(Settings(world.settingsPath()).boolValue(SettingsKey::onboarded), true);
  adapter.forward();
  EXPECT_EQ(adapter.step(), 4);
  EXPECT_EQ(Settings(world.settingsPath()).boolValue(SettingsKey::onboarded), true);
  EXPECT_FALSE(world.guide->isPolling());
}

}  // namespace
}  // namespace zorvane
