#include "platform/linux/launched_processes.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace zorvane {
namespace {

pid_t spawnSleep() {
  pid_t pid = 0;
  char* argv[] = {const_cast<char*>("sleep"), const_cast<char*>("30"), nullptr};
  if (posix_spawn(&pid, "/bin/sleep", nullptr, nullptr, argv, environ) != 0) return 0;
  return pid;
}

// Each process is a launch once: this program's own from the start, others from their
// first record; a process that ends is forgotten, display clients without a process are
// not.
TEST(LaunchedProcesses, RecordsEachProcessOnceAndForgetsEndedOnes) {
  pid_t child = spawnSleep();
  ASSERT_GT(child, 0);
  auto own = LaunchedProcesses::processKey(getpid());
  auto key = LaunchedProcesses::processKey(child);
  ASSERT_TRUE(own && key);
  EXPECT_NE(*own, *key);
  std::string client = LaunchedProcesses::clientKey(0x1400000);

  LaunchedProcesses seen;
  seen.reset();
  EXPECT_FALSE(seen.add(*own, getpid())) << "this program's own windows are no launch";
  EXPECT_TRUE(seen.add(*key, child));
  EXPECT_FALSE(seen.add(*key, child));
  EXPECT_TRUE(seen.add(client, 0));
  seen.forgetEnded();
  EXPECT_FALSE(seen.add(*key, child)) << "a running process is kept";

  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  EXPECT_FALSE(LaunchedProcesses::processKey(child)) << "an ended process has no key";
  seen.forgetEnded();
  EXPECT_TRUE(seen.add(*key, child)) << "an ended process is forgotten";
  EXPECT_FALSE(seen.add(client, 0)) << "a client's key can't be checked, so it stays";

  seen.clear();
  EXPECT_TRUE(seen.add(*own, getpid()));
}

}  // namespace
}  // namespace zorvane
