#include "core/base/file_io.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "core/base/paths.h"
#include "core/base/store_file.h"
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

// What Zorvane keeps in its own folders (scopes, MCP configurations, stores) is the
// user's alone, whatever mode a caller asks for and whatever the umask: folders 0700,
// files 0600, existing folders of ours tightened, a folder of another user refused.
// Elsewhere the caller's mode holds, and the default is private too.
TEST(FileIO, OwnFoldersArePrivate) {
  testing::TempHome home;
  struct Umask {
    mode_t old = umask(0);
    ~Umask() { umask(old); }
  } mask;
  const std::string data = Paths::dataDirectory(), state = Paths::stateDirectory();
  ASSERT_TRUE(createDirectories(data + "/sessions/P", 0755));
  ASSERT_EQ(mkdir(state.substr(0, state.rfind('/')).c_str(), 0755), 0);
  ASSERT_EQ(mkdir(state.c_str(), 0777), 0);  // made loosely before
  ASSERT_TRUE(createDirectories(state + "/logs", 0755));
  ASSERT_TRUE(writeFileAtomically(data + "/sessions/P/mcp.json", "{}", 0644));
  // A scope left readable by others (by an older version) loses that when replaced.
  ASSERT_TRUE(writeFileAtomically(home.path() + "/old.json", "{}", 0644));
  ASSERT_EQ(rename((home.path() + "/old.json").c_str(), (data + "/sessions/P/scope.json").c_str()), 0);
  ASSERT_TRUE(writeFileAtomically(data + "/sessions/P/scope.json", "{\"entries\":[]}", 0644));
  ASSERT_TRUE(StoreFile::save(data + "/stores/sessions.json", "[]"));
  ASSERT_TRUE(writeFileAtomically(home.path() + "/work/notes.txt", "x", 0644));
  ASSERT_TRUE(writeFileAtomically(home.path() + "/plain.txt", "x"));
  ASSERT_TRUE(createDirectories(home.path() + "/open", 0755));

  const std::vector<std::pair<std::string, unsigned>> modes = {
      {data, 0700}, {data + "/sessions", 0700}, {data + "/sessions/P", 0700},
      {data + "/sessions/P/mcp.json", 0600}, {data + "/sessions/P/scope.json", 0600} /* replaced: tightened */,
      {data + "/stores", 0700}, {data + "/stores/sessions.json", 0600},
      {state, 0700} /* existed loosely */, {state + "/logs", 0700},
      {home.path() + "/.local/share", 0755} /* above the own folder: as asked */,
      {home.path() + "/work", 0700}, {home.path() + "/work/notes.txt", 0644}, {home.path() + "/plain.txt", 0600},
      {home.path() + "/open", 0755},
  };
  for (const auto& [path, mode] : modes) {
    SCOPED_TRACE(path);
    EXPECT_EQ(modeOf(path), mode);
  }
  if (geteuid() == 0) {  // only root can give a folder away
    std::string theirs = data + "/theirs";
    ASSERT_EQ(mkdir(theirs.c_str(), 0777), 0);
    ASSERT_EQ(chown(theirs.c_str(), 65534, 65534), 0);
    EXPECT_EQ(createDirectories(theirs + "/x").error(), "create folder " + theirs + ": it belongs to another user");
    EXPECT_FALSE(std::filesystem::exists(theirs + "/x"));
  }
}

}  // namespace zorvane
