// Helpers shared by the tests: a temporary folder that removes itself, an environment
// variable that is restored at the end of the scope, and the log sent to a file.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace zorvane::testing {

// A fresh folder under $TMPDIR (or /tmp), removed with everything in it on destruction.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return path_; }
  // path() + "/" + name
  std::string file(const std::string& name) const;
  // Writes a file below the folder (parents created) and returns its path.
  std::string write(const std::string& name, const std::string& contents) const;

 private:
  std::string path_;
};

// Sets (or, with nullopt, unsets) an environment variable for the life of the object.
class ScopedEnv {
 public:
  ScopedEnv(std::string name, std::optional<std::string> value);
  ~ScopedEnv();
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  std::string name_;
  std::optional<std::string> old_;
};

// Points HOME and every XDG variable at a fresh temporary folder, so code under test
// never touches the real home.
class TempHome {
 public:
  TempHome();
  const std::string& path() const { return dir_.path(); }

 private:
  TempDir dir_;
  ScopedEnv home_, data_, state_, config_, cache_;
};

// Whether any process of the process group `group` is still running (zombies, which
// nobody may reap here, count as ended).
bool processGroupAlive(int group);

// Reads a whole file ("" if missing).
std::string readAll(const std::string& path);

// The names in a folder, sorted.
std::vector<std::string> folderEntries(const std::string& folder);

// Sends the log to `path` for the life of the object, then back to the default.
class ScopedLogFile {
 public:
  explicit ScopedLogFile(std::string path);
  ~ScopedLogFile();
  ScopedLogFile(const ScopedLogFile&) = delete;
  ScopedLogFile& operator=(const ScopedLogFile&) = delete;
  // What the log file holds so far, flushed.
  std::string text() const;

 private:
  std::string path_;
};

}  // namespace zorvane::testing
