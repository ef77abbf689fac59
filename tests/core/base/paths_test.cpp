#include "core/base/paths.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <optional>

#include "support/test_support.h"

namespace zorvane {

using testing::ScopedEnv;

// Absolute XDG values are used; unset, empty or relative ones fall back below HOME.
TEST(Paths, FollowsAbsoluteXDGFoldersAndIgnoresOthers) {
  testing::TempHome home;
  {
    ScopedEnv data("XDG_DATA_HOME", "/x/data/");
    ScopedEnv state("XDG_STATE_HOME", "/x/state");
    ScopedEnv config("XDG_CONFIG_HOME", "/x/config");
    EXPECT_EQ(Paths::sessionsDirectory(), "/x/data/zorvane/sessions");
    EXPECT_EQ(Paths::logFile(), "/x/state/zorvane/zorvane.log");
    EXPECT_EQ(Paths::settingsFile(), "/x/config/zorvane/settings.json");
    EXPECT_EQ(Paths::claudeSkillsDirectory(), home.path() + "/.claude/skills");
    EXPECT_EQ(Paths::phoneDirectory(), home.path() + "/.zorvane/phone");
  }
  for (const char* value : {"", "relative/dir"}) {
    SCOPED_TRACE(value);
    ScopedEnv data("XDG_DATA_HOME", value);
    ScopedEnv state("XDG_STATE_HOME", value);
    ScopedEnv config("XDG_CONFIG_HOME", value);
    EXPECT_EQ(Paths::dataDirectory(), home.path() + "/.local/share/zorvane");
    EXPECT_EQ(Paths::logFile(), home.path() + "/.local/state/zorvane/zorvane.log");
    EXPECT_EQ(Paths::settingsFile(), home.path() + "/.config/zorvane/settings.json");
  }
  EXPECT_EQ(Paths::dataDirectory(), home.path() + "/.local/share/zorvane");  // unset
  ScopedEnv tmp("TMPDIR", "relative");
  EXPECT_EQ(Paths::temporaryDirectory(), "/tmp");
}

// A path is in an own folder when it is the folder or below it, written with any number
// of slashes; a sibling whose name merely begins the same is not.
TEST(Paths, FindsTheOwnFolderHoldingAPath) {
  testing::TempHome home;
  ScopedEnv state("XDG_STATE_HOME", "/x/state");
  const std::string data = home.path() + "/.local/share/zorvane";
  for (auto [path, own] : std::initializer_list<std::pair<std::string, std::string>>{
           {data, data},
           {data + "/sessions/P/scope.json", data},
           {home.path() + "/.local/share//zorvane///ipc.sock", data},
           {"/x/state/zorvane/", "/x/state/zorvane"},
           {home.path() + "/.config/zorvane/settings.json", home.path() + "/.config/zorvane"},
           {data + "-old/scope.json", ""},
           {home.path() + "/.local/share", ""},
       }) {
    SCOPED_TRACE(path);
    EXPECT_EQ(Paths::ownDirectoryHolding(path), own);
  }
}

// The shell is $SHELL only when it is an absolute path to an executable file.
TEST(Paths, UserShellNeedsAnExecutableFile) {
  testing::TempDir dir;
  std::string script = dir.write("myshell", "#!/bin/sh\n");
  chmod(script.c_str(), 0755);
  std::string plain = dir.write("notexec", "");
  chmod(plain.c_str(), 0644);
  for (auto [shell, expected] :
       std::initializer_list<std::pair<std::optional<std::string>, std::string>>{
           {script, script},
           {plain, "/bin/sh"},
           {dir.path(), "/bin/sh"},
           {"myshell", "/bin/sh"},
           {std::nullopt, "/bin/sh"}}) {
    SCOPED_TRACE(shell.value_or("(unset)"));
    ScopedEnv variable("SHELL", shell);
    EXPECT_EQ(Paths::userShell(), expected);
  }
}

}  // namespace zorvane
