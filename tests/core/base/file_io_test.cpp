#include "core/base/file_io.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "support/test_support.h"

namespace zorvane {

using testing::readAll;
using Names = std::vector<std::string>;

static unsigned modeOf(const std::string& path) {
  struct stat info {};
  stat(path.c_str(), &info);
  return info.st_mode & 07777;
}

// A write creates missing folders (like mkdir -p) and replaces the whole file, leaving
// nothing else. A new file gets the requested mode less the umask; a replaced file keeps
// its own mode. Reads report the system's reason.
TEST(FileIO, WriteCreatesFoldersReplacesTheFileAndSetsItsMode) {
  testing::TempDir dir;
  struct Umask {
    mode_t old = umask(022);
    ~Umask() { umask(old); }
  } mask;
  std::string path = dir.file("a/b/c.bin");
  ASSERT_TRUE(writeFileAtomically(path, std::string("first\0with a NUL", 16), 0660));
  EXPECT_EQ(readFile(path).value(), std::string("first\0with a NUL", 16));
  EXPECT_EQ(modeOf(path), 0640u);
  ASSERT_EQ(chmod(path.c_str(), 0600), 0);
  ASSERT_TRUE(writeFileAtomically(path, "2nd", 0640));
  EXPECT_EQ(readFile(path).value(), "2nd");
  EXPECT_EQ(modeOf(path), 0600u);
  EXPECT_EQ(testing::folderEntries(dir.file("a/b")), Names{"c.bin"});
  EXPECT_TRUE(writeFileAtomically(dir.file(std::string(250, 'n')), "x")) << "a long name fits";
  ASSERT_TRUE(createDirectories(dir.file("x//y/z/")));
  EXPECT_TRUE(std::filesystem::is_directory(dir.file("x/y/z")));
  EXPECT_TRUE(createDirectories(dir.file("x/y/z"))) << "an existing folder is success";
  EXPECT_EQ(readFile(dir.file("missing")).error(), "No such file or directory");
  EXPECT_EQ(readFile(dir.path()).error(), "Is a directory");
}

// Whatever step fails, the old file is left byte for byte and no temporary file stays;
// the error names the step, the path and the system's reason.
TEST(FileIO, FailedWriteLeavesOldFileWholeAndNoTemporaryFile) {
  testing::TempDir dir;
  std::string old = dir.write("data/store.json", "{\"old\": true}\n");
  dir.write("data/folder/inside", "keep");
  const Names before = testing::folderEntries(dir.file("data"));

  // The file system refuses to grow the file past 64 KiB, partway through the write.
  rlimit saved{};
  getrlimit(RLIMIT_FSIZE, &saved);
  rlimit small = saved;
  small.rlim_cur = 64 * 1024;
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  sighandler_t oldHandler = signal(SIGXFSZ, SIG_IGN);
  auto tooBig = writeFileAtomically(old, std::string(256 * 1024, 'n'));
  signal(SIGXFSZ, oldHandler);
  setrlimit(RLIMIT_FSIZE, &saved);
  EXPECT_EQ(tooBig.error(), "write " + old + ": File too large");

  // The target is a folder, so the final rename fails.
  EXPECT_EQ(writeFileAtomically(dir.file("data/folder"), "new").error(),
            "replace " + dir.file("data/folder") + ": Is a directory");
  EXPECT_EQ(readAll(dir.file("data/folder/inside")), "keep");

  if (geteuid() != 0) {  // permission bits do not stop root
    ASSERT_EQ(chmod(dir.file("data").c_str(), 0555), 0);
    EXPECT_EQ(writeFileAtomically(old, "new").error(),
              "create temporary file in " + dir.file("data") + ": Permission denied");
    chmod(dir.file("data").c_str(), 0755);
  }
  // A path through an existing file fails at the folder step.
  EXPECT_EQ(writeFileAtomically(old + "/sub/x.json", "{}").error(),
            "create folder " + old + ": Not a directory");
  EXPECT_EQ(writeFileAtomically("", "x").error(), "write: the path is empty");
  EXPECT_EQ(readAll(old), "{\"old\": true}\n");
  EXPECT_EQ(testing::folderEntries(dir.file("data")), before);
}

}  // namespace zorvane
