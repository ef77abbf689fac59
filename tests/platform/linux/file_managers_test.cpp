#include "platform/linux/file_managers.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "support/test_support.h"

namespace zorvane {
namespace {

namespace fs = std::filesystem;

pid_t spawnSleep(const std::string& program) {
  pid_t pid = 0;
  char* argv[] = {const_cast<char*>(program.c_str()), const_cast<char*>("30"), nullptr};
  if (posix_spawn(&pid, program.c_str(), nullptr, nullptr, argv, environ) != 0) return 0;
  return pid;
}

void end(pid_t pid) {
  kill(pid, SIGKILL);
  waitpid(pid, nullptr, 0);
}

// A process is the file manager its executable is named after, wherever it lies; any
// other program is none, and so is a process that has ended.
TEST(FileManagers, KnowsAProcessByItsExecutable) {
  testing::TempDir dir;
  for (const char* name : {"thunar", "nautilus"}) {
    fs::copy_file("/bin/sleep", dir.file(name));
    fs::permissions(dir.file(name), fs::perms::owner_all);
  }
  pid_t thunar = spawnSleep(dir.file("thunar"));
  pid_t nautilus = spawnSleep(dir.file("nautilus"));
  pid_t other = spawnSleep("/bin/sleep");
  ASSERT_TRUE(thunar > 0 && nautilus > 0 && other > 0);

  EXPECT_EQ(FileManagers::ofProcess(thunar), &fileManagerApp(FileManagerKind::thunar));
  EXPECT_EQ(FileManagers::ofProcess(nautilus), &fileManagerApp(FileManagerKind::nautilus));
  EXPECT_EQ(FileManagers::ofProcess(other), nullptr);
  end(thunar);
  EXPECT_EQ(FileManagers::ofProcess(thunar), nullptr);
  end(nautilus);
  end(other);
}

}  // namespace
}  // namespace zorvane
