#include "core/base/child_process.h"

#include <dirent.h>
#include <signal.h>
#include <sys/wait.h>
#include <gtest/gtest.h>

#include "core/base/run_loop.h"
#include "support/test_support.h"

namespace zorvane {
namespace {

struct Collected {
  std::string out, err;
  std::optional<int> exitCode;
};

std::shared_ptr<ChildProcess> spawnCollecting(RunLoop& loop, ChildProcess::Options options,
                                              Collected& into) {
  auto child = ChildProcess::create(std::move(options), loop);
  child->onStdout = [&into](std::string chunk) { into.out += chunk; };
  child->onStderr = [&into](std::string chunk) { into.err += chunk; };
  child->onExit = [&into](int code) { into.exitCode = code; };
  return child;
}

size_t openDescriptorCount() {
  size_t count = 0;
  DIR* dir = opendir("/proc/self/fd");
  while (readdir(dir) != nullptr) ++count;
  closedir(dir);
  return count;
}

// Input written to the child comes back on stdout, stderr is kept apart, the exit code
// arrives once and after all output, and no descriptor is left open.
TEST(ChildProcess, PipesInputOutputAndExitCode) {
  RunLoop loop;
  size_t before = openDescriptorCount();
  Collected got;
  {
    auto child = spawnCollecting(
        loop, {"/bin/sh", {"-c", "cat; echo oops >&2; exit 3"}}, got);
    ASSERT_TRUE(child->start());
    EXPECT_TRUE(child->isRunning());
    EXPECT_TRUE(child->write("hello\n"));
    EXPECT_TRUE(child->write(std::string(200000, 'z')));  // more than a pipe holds at once
    child->closeStdin();
    ASSERT_TRUE(loop.runUntil([&] { return got.exitCode.has_value(); }, 20));
    EXPECT_FALSE(child->isRunning());
    EXPECT_FALSE(child->write("late")) << "a finished child takes no input";
  }
  EXPECT_EQ(got.exitCode, 3);
  EXPECT_EQ(got.out, "hello\n" + std::string(200000, 'z'));
  EXPECT_EQ(got.err, "oops\n");
  loop.runUntilIdle();
  EXPECT_EQ(openDescriptorCount(), before);
}

// Arguments pass unchanged, the child runs in its folder with the given environment, and
// standard input can be the null device.
TEST(ChildProcess, HonoursArgumentsFolderAndEnvironment) {
  testing::TempDir dir;
  RunLoop loop;
  Collected got;
  Environment env;
  env.set("GREETING", "hi there");
  env.set("PATH", "/usr/bin:/bin");
  ChildProcess::Options options{"/bin/sh",
                                {"-c", "printf '%s|%s|%s|' \"$1\" \"$GREETING\" \"$(pwd)\"; cat",
                                 "sh", "a \"quoted\" \\ arg"},
                                dir.path(),
                                env,
                                true};
  auto child = spawnCollecting(loop, options, got);
  ASSERT_TRUE(child->start());
  ASSERT_TRUE(loop.runUntil([&] { return got.exitCode.has_value(); }, 20));
  EXPECT_EQ(got.out, "a \"quoted\" \\ arg|hi there|" + dir.path() + "|");
  EXPECT_EQ(got.exitCode, 0);
}

// Failures to launch say what and why, and start nothing.
TEST(ChildProcess, ReportsLaunchFailures) {
  RunLoop loop;
  Collected got;
  auto missing = spawnCollecting(loop, {"/nonexistent/tool", {}}, got);
  auto started = missing->start();
  ASSERT_FALSE(started);
  EXPECT_EQ(started.error(), "Couldn't start /nonexistent/tool: No such file or directory");
  EXPECT_FALSE(missing->isRunning());

  auto noFolder = spawnCollecting(loop, {"/bin/true", {}, "/nonexistent/folder"}, got);
  EXPECT_EQ(noFolder->start().error(),
            "Couldn't start /bin/true: the folder /nonexistent/folder doesn't exist");
  loop.runUntilIdle();
  EXPECT_FALSE(got.exitCode.has_value());
}

// terminate() ends a running child with SIGTERM (status 128+15); dropping the object
// ends its child too and the reaper collects it, leaving no zombie.
TEST(ChildProcess, TerminatesAndReaps) {
  RunLoop loop;
  Collected got;
  auto child = spawnCollecting(loop, {"/bin/sleep", {"30"}}, got);
  ASSERT_TRUE(child->start());
  child->terminate();
  ASSERT_TRUE(loop.runUntil([&] { return got.exitCode.has_value(); }, 20));
  EXPECT_EQ(got.exitCode, 128 + SIGTERM);

  auto dropped = ChildProcess::create({"/bin/sleep", {"30"}}, loop);
  ASSERT_TRUE(dropped->start());
  pid_t pid = dropped->pid();
  dropped.reset();
  // The reaper collects the child; once it has, the pid is no longer ours to wait for.
  bool gone = loop.runUntil([&] { return ::kill(pid, 0) != 0; }, 20);
  EXPECT_TRUE(gone) << "the dropped child must be terminated and reaped";
  loop.runUntilIdle();
}

// A child leading its own group is stopped with the whole group: SIGTERM first, SIGKILL
// after the grace for what ignores it, and a job in the background dies with the child
// even when only the job ignores SIGTERM.
// A child that ends by itself leaves its background jobs alone (an application it opened
// stays open).
TEST(ChildProcess, StopsItsWholeProcessGroup) {
  struct Case {
    std::string script;  // prints its group id first
    bool stop;
    std::optional<int> exitCode;
    bool groupLivesOn;
  };
  const std::vector<Case> cases = {
      {"sleep 1000 & echo $$; sleep 1000", true, 128 + SIGTERM, false},
      {"trap '' TERM; sleep 1000 & echo $$; sleep 1000", true, 128 + SIGKILL, false},
      {"(trap '' TERM; sleep 1000) & echo $$; sleep 1000", true, 128 + SIGTERM, false},
      {"sleep 1000 & echo $$", false, 0, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.script);
    RunLoop loop;
    Collected got;
    ChildProcess::Options options{"/bin/sh", {"-c", c.script}};
    options.ownProcessGroup = true;
    auto child = spawnCollecting(loop, options, got);
    ASSERT_TRUE(child->start());
    ASSERT_TRUE(loop.runUntil([&] { return got.out.find('\n') != std::string::npos; }, 20));
    int group = std::stoi(got.out);
    EXPECT_EQ(group, child->pid());
    if (c.stop) child->stop(0.3);
    ASSERT_TRUE(loop.runUntil([&] { return got.exitCode.has_value(); }, 20));
    EXPECT_EQ(got.exitCode, c.exitCode);
    if (c.groupLivesOn) {
      EXPECT_TRUE(testing::processGroupAlive(group));
      ::kill(-group, SIGKILL);
      continue;
    }
    EXPECT_TRUE(loop.runUntil([&] { return !testing::processGroupAlive(group); }, 10));
  }
}

}  // namespace
}  // namespace zorvane
