#include "core/base/log.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <regex>
#include <sstream>
#include <thread>
#include <vector>

#include "core/base/paths.h"
#include "support/test_support.h"

namespace zorvane {

using testing::ScopedLogFile;
using testing::TempDir;

static std::vector<std::string> linesOf(const std::string& path) {
  std::vector<std::string> lines;
  std::istringstream in(testing::readAll(path));
  for (std::string line; std::getline(in, line);) lines.push_back(line.substr(20));  // no time
  return lines;
}

// Lines from several threads all arrive, each whole and stamped, in each thread's order.
TEST(Log, LinesFromManyThreadsAllArriveWhole) {
  TempDir dir;
  std::string path = dir.file("new/folder/test.log");
  ScopedLogFile logTo(path);
  constexpr int kThreads = 4, kLines = 300;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < kLines; ++i) {
        Log::info("thread " + std::to_string(t) + " line " + std::to_string(i) + " " +
                  std::string(static_cast<size_t>(i % 50), 'x'));
      }
    });
  }
  for (auto& thread : threads) thread.join();
  Log::flush();

  const std::regex shape(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ thread (\d) line (\d+) (x*))");
  std::vector<int> next(kThreads, 0);
  std::istringstream in(testing::readAll(path));
  int count = 0;
  for (std::string line; std::getline(in, line); ++count) {
    std::smatch match;
    ASSERT_TRUE(std::regex_match(line, match, shape)) << line;
    int thread = std::stoi(match[1]), number = std::stoi(match[2]);
    EXPECT_EQ(number, next[thread]++) << line;
    EXPECT_EQ(match[3].length(), static_cast<size_t>(number % 50)) << line;
  }
  EXPECT_EQ(count, kThreads * kLines);
}

// Lines handed over before setFile stay in the old file, "" returns to the state folder,
// and line ends inside a message become blanks. A file that cannot be written drops its
// lines; the caller and later lines carry on.
TEST(Log, SetFileRedirectsOnlyLaterLines) {
  testing::TempHome home;
  TempDir dir;
  std::string blocker = dir.write("blocker", "");
  {
    ScopedLogFile logTo(dir.file("one.log"));
    Log::info("to one");
    Log::setFile(blocker + "/cannot/be.log");
    Log::info("lost");
    Log::setFile(dir.file("two.log"));
    Log::info("to two\nsecond\r\nthird");
  }
  Log::info("to default");
  Log::flush();
  EXPECT_EQ(linesOf(dir.file("one.log")), std::vector<std::string>{" to one"});
  EXPECT_EQ(testing::readAll(blocker), "");
  EXPECT_EQ(linesOf(dir.file("two.log")), std::vector<std::string>{" to two second  third"});
  EXPECT_EQ(linesOf(Paths::logFile()), std::vector<std::string>{" to default"});
}

// The log is the user's alone: made 0600 in a folder made 0700, and a log file left
// readable by others is tightened at the next line.
TEST(Log, TheFileIsPrivate) {
  TempDir dir;
  std::string made = dir.file("state/made.log"), loose = dir.write("loose.log", "");
  ASSERT_EQ(chmod(loose.c_str(), 0644), 0);
  for (const std::string& path : {made, loose}) {
    ScopedLogFile logTo(path);
    Log::info("a line");
  }
  Log::flush();
  struct stat info {};
  for (const std::string& path : {made, loose, dir.file("state")}) {
    SCOPED_TRACE(path);
    ASSERT_EQ(stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, S_ISDIR(info.st_mode) ? 0700u : 0600u);
  }
}

}  // namespace zorvane
