#include "app/shell/desktop_settings.h"

#include <gtest/gtest.h>

#include <set>

namespace zorvane {
namespace {

// The first known tool wins, wherever on the path it lives; a desktop with none gets
// none.
TEST(DesktopSettings, OpensTheFirstKnownToolOnThePath) {
  std::set<std::string> present;
  auto isExecutable = [&present](const std::string& path) { return present.count(path) > 0; };
  const std::vector<std::string> folders{"/usr/local/bin", "/usr/bin"};
  EXPECT_EQ(DesktopSettings::accessibilityCommand(folders, isExecutable), std::nullopt);
  present = {"/usr/bin/systemsettings", "/usr/bin/xfce4-accessibility-settings"};
  EXPECT_EQ(DesktopSettings::accessibilityCommand(folders, isExecutable),
            (std::vector<std::string>{"/usr/bin/xfce4-accessibility-settings"}));
  present = {"/usr/bin/systemsettings"};
  EXPECT_EQ(DesktopSettings::accessibilityCommand(folders, isExecutable),
            (std::vector<std::string>{"/usr/bin/systemsettings", "kcm_access"}));
}

}  // namespace
}  // namespace zorvane
