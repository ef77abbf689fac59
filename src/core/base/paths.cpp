#include "core/base/paths.h"

#include <limits.h>
#include <pwd.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vector>

namespace zorvane::Paths {

static std::string environment(const char* name) {
  const char* value = getenv(name);
  return value == nullptr ? std::string() : std::string(value);
}

static bool isAbsolute(const std::string& path) {
  return !path.empty() && path[0] == '/';
}

// Drops trailing slashes so joining never doubles one; "/" stays "/".
static std::string withoutTrailingSlashes(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

static std::string join(const std::string& folder, const std::string& name) {
  if (folder.empty() || folder.back() == '/') return folder + name;
  return folder + "/" + name;
}

std::string home() {
  std::string fromEnvironment = environment("HOME");
  if (!fromEnvironment.empty()) return withoutTrailingSlashes(fromEnvironment);

  long suggested = sysconf(_SC_GETPW_R_SIZE_MAX);
  std::vector<char> buffer(suggested > 0 ? static_cast<size_t>(suggested) : 16384);
  struct passwd entry;
  struct passwd* found = nullptr;
  if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr &&
      found->pw_dir != nullptr && isAbsolute(found->pw_dir)) {
    return withoutTrailingSlashes(found->pw_dir);
  }
  return "/";
}

// An XDG base folder: the variable when it holds an absolute path, else the fallback
// below the home folder. Relative values are ignored as the XDG rules require.
static std::string baseDirectory(const char* variable, const char* fallbackBelowHome) {
  std::string value = environment(variable);
  if (isAbsolute(value)) return withoutTrailingSlashes(value);
  return join(home(), fallbackBelowHome);
}

std::string dataDirectory() {
  return join(baseDirectory("XDG_DATA_HOME", ".local/share"), "zorvane");
}

std::string stateDirectory() {
  return join(baseDirectory("XDG_STATE_HOME", ".local/state"), "zorvane");
}

std::string configDirectory() {
  return join(baseDirectory("XDG_CONFIG_HOME", ".config"), "zorvane");
}

std::vector<std::string> ownDirectories() {
  return {dataDirectory(), stateDirectory(), configDirectory()};
}

// Collapses runs of "/" into one and drops a trailing one, so prefixes compare plainly.
static std::string withSingleSlashes(const std::string& path) {
  std::string result;
  for (char c : path) {
    if (c == '/' && !result.empty() && result.back() == '/') continue;
    result += c;
  }
  return withoutTrailingSlashes(result);
}

std::string ownDirectoryHolding(const std::string& path) {
  std::string candidate = withSingleSlashes(path);
  for (const std::string& own : ownDirectories()) {
    std::string folder = withSingleSlashes(own);
    if (candidate == folder || (candidate.starts_with(folder) && candidate[folder.size()] == '/')) return own;
  }
  return {};
}

std::string logFile() {
  return join(stateDirectory(), "zorvane.log");
}

std::string settingsFile() {
  return join(configDirectory(), "settings.json");
}

std::string scratchDirectory() {
  return join(dataDirectory(), "scratch");
}

std::string sessionsDirectory() {
  return join(dataDirectory(), "sessions");
}

std::string claudeSkillsDirectory() {
  return join(home(), ".claude/skills");
}

std::string phoneDirectory() {
  return join(home(), ".zorvane/phone");
}

std::string temporaryDirectory() {
  std::string value = environment("TMPDIR");
  if (isAbsolute(value)) return withoutTrailingSlashes(value);
  return "/tmp";
}

bool isExecutableFile(const std::string& path) {
  struct stat info;
  return ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) && (info.st_mode & 0111) != 0 &&
         access(path.c_str(), X_OK) == 0;
}

std::string userShell() {
  std::string shell = environment("SHELL");
  return isAbsolute(shell) && isExecutableFile(shell) ? shell : "/bin/sh";
}

std::vector<std::string> searchPath() {
  std::vector<std::string> folders;
  std::string value = environment("PATH");
  std::string_view rest = value;
  while (!rest.empty()) {
    size_t colon = rest.find(':');
    std::string folder(rest.substr(0, colon));
    rest = colon == std::string_view::npos ? std::string_view() : rest.substr(colon + 1);
    if (isAbsolute(folder)) folders.push_back(folder);
  }
  return folders;
}

std::string executablePath() {
  std::vector<char> buffer(PATH_MAX);
  for (;;) {
    ssize_t length = readlink("/proc/self/exe", buffer.data(), buffer.size());
    if (length < 0) return {};
    if (static_cast<size_t>(length) < buffer.size()) {
      return std::string(buffer.data(), static_cast<size_t>(length));
    }
    buffer.resize(buffer.size() * 2);  // possibly cut short: try again with more room
  }
}

}  // namespace zorvane::Paths
