#include "platform/linux/application_identity.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "support/test_support.h"

namespace zorvane {
namespace {

// Which identifier and name a window's class, GTK id and desktop entries give, in the
// order of precedence callers rely on (browsers by their fixed ids first).
TEST(ApplicationIdentity, MapsWindowsToIdentifiersAndNames) {
  testing::TempDir home, system;
  home.write("applications/org.example.Editor.desktop",
             "[Desktop Entry]\nType=Application\nName=My Editor\nExec=editor %F\n");
  system.write("applications/org.example.Editor.desktop",
               "[Desktop Entry]\nType=Application\nName=System Editor\nExec=editor\n");
  system.write("applications/chromium.desktop",
               "[Desktop Entry]\nType=Application\nName=Chromium Web Browser\nStartupWMClass=chromium\n"
               "[Desktop Action new]\nName=New Window\n");
  system.write("applications/org.example.Viewer.desktop",
               "[Desktop Entry]\nName=Picture Viewer\nType=Application\nStartupWMClass=Viewer-x11\n"
               "Exec=env LANG=C /usr/bin/viewer --new\n");
  system.write("applications/kde/term.desktop", "[Desktop Entry]\nType=Application\nName=Terminal\n");
  system.write("applications/gone.desktop", "[Desktop Entry]\nType=Application\nName=Gone\nHidden=true\n");
  ApplicationIdentity identity({home.path(), system.path()});
  const std::string self = ApplicationIdentity::executableName(getpid());
  ASSERT_FALSE(self.empty());

  struct Case {
    WindowIdentity window;
    std::string bundleID, name;
  };
  const Case cases[] = {
      {{"chromium (/tmp/profile)", "Chromium", ""}, "org.chromium.Chromium", "Chromium Web Browser"},
      {{"google-chrome", "Google-chrome", ""}, "com.google.Chrome", self},
      {{"brave-browser", "Brave-browser", ""}, "com.brave.Browser", self},
      {{"microsoft-edge", "Microsoft-edge", ""}, "com.microsoft.edgemac", self},
      {{"vivaldi-stable", "Vivaldi-stable", ""}, "com.vivaldi.Vivaldi", self},
      // The GTK id names the app; the entry of that id (the user's first) names it.
      {{"editor", "Editor", "org.example.Editor"}, "org.example.Editor", "My Editor"},
      // StartupWMClass, case aside, and ids below subfolders.
      {{"viewer", "viewer-X11", ""}, "org.example.Viewer", "Picture Viewer"},
      {{"term", "Kde-term", ""}, "kde-term", "Terminal"},
      // No entry (a hidden one counts as none): the class and the executable.
      {{"gone", "Gone", ""}, "Gone", self},
      {{"xmessage", "Xmessage", ""}, "Xmessage", self},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.window.resClass);
    ApplicationInfo info = identity.identify(c.window, getpid());
    EXPECT_EQ(info.bundleID, c.bundleID);
    EXPECT_EQ(info.name, c.name);
  }
  EXPECT_EQ(identity.identify({"a", "A", ""}, 0).name, "") << "no process, no entry: no name";

  // A process without a window is known by the entry whose Exec runs it, or not at all.
  EXPECT_FALSE(identity.identifyProcess(getpid()));
  EXPECT_FALSE(identity.identifyProcess(0));
  system.write("applications/org.example.Tests.desktop",
               "[Desktop Entry]\nType=Application\nName=The Tests\nExec=" + self + " --all\n");
  ApplicationIdentity withTests({system.path()});
  auto tests = withTests.identifyProcess(getpid());
  ASSERT_TRUE(tests);
  EXPECT_EQ(tests->bundleID, "org.example.Tests");
  EXPECT_EQ(tests->name, "The Tests");
}

}  // namespace
}  // namespace zorvane
