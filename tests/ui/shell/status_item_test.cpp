// The status item: its menu shows the provider's rows as they are when it opens, and
// calls their actions; without a status area nothing shows and one line is logged.
#include "ui/shell/status_item.h"

#include <gtest/gtest.h>

#include <QAction>
#include <QSystemTrayIcon>

#include <algorithm>
#include <string>
#include <vector>

#include "support/test_support.h"
#include "ui/ink_test_scenes.h"

namespace zorvane {

TEST(StatusMenu, ShowsTheRowsOfTheMomentItOpensAndRunsTheirActions) {
  std::string why;
  if (!testing::ensureGuiApplication(why)) GTEST_SKIP() << why;
  int quits = 0;
  std::vector<StatusMenuRow> rows = {
      {.title = "Open Hub", .tooltip = "Your conversations", .shortcut = "H"},
      {.kind = StatusMenuRow::Kind::separator},
      {.title = "Pause Agents", .enabled = false},
      {.title = "Quit Zorvane", .shortcut = "Q", .action = [&] { quits++; }},
  };
  int asked = 0;
  StatusMenu menu([&] {
    asked++;
    return rows;
  });
  EXPECT_EQ(asked, 0);

  menu.popup(QPoint(20, 20));
  QList<QAction*> actions = menu.actions();
  ASSERT_EQ(actions.size(), 4);
  EXPECT_EQ(actions[0]->text(), "Open Hub");
  EXPECT_EQ(actions[0]->toolTip(), "Your conversations");
  EXPECT_EQ(actions[0]->shortcut(), QKeySequence("Ctrl+H"));
  EXPECT_TRUE(actions[1]->isSeparator());
  EXPECT_FALSE(actions[2]->isEnabled());
  EXPECT_TRUE(actions[3]->isEnabled());
  actions[3]->trigger();
  EXPECT_EQ(quits, 1);
  menu.hide();

  rows = {{.title = "Resume Agents"}};
  menu.popup(QPoint(20, 20));
  ASSERT_EQ(menu.actions().size(), 1);
  EXPECT_EQ(menu.actions()[0]->text(), "Resume Agents");
  EXPECT_EQ(asked, 2);
  menu.hide();
}

TEST(StatusItem, WithoutAStatusAreaShowsNothingAndLogsOneLine) {
  std::string why;
  if (!testing::ensureGuiApplication(why)) GTEST_SKIP() << why;
  if (QSystemTrayIcon::isSystemTrayAvailable()) GTEST_SKIP() << "this desktop has a status area";
  testing::TempDir dir;
  testing::ScopedLogFile log(dir.file("zorvane.log"));
  int asked = 0;
  StatusItem item([&] {
    asked++;
    return std::vector<StatusMenuRow>{};
  });
  EXPECT_FALSE(item.isShown());
  EXPECT_EQ(asked, 0);
  std::string text = log.text();
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1) << text;
  EXPECT_NE(text.find("status area"), std::string::npos) << text;
}

}  // namespace zorvane
