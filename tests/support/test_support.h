// Helpers shared by the tests: a temporary folder that removes itself, and an
// environment variable that is restored at the end of the scope.
#pragma once

#include <string>
#include <optional>

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

// Reads a whole file ("" if missing).
std::string readAll(const std::string& path);

}  // namespace zorvane::testing
