#include "support/test_support.h"

#include <stdlib.h>

#include <algorithm>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "core/base/log.h"

namespace zorvane::testing {

TempDir::TempDir() {
  const char* tmp = getenv("TMPDIR");
  std::string base = (tmp != nullptr && tmp[0] == '/') ? tmp : "/tmp";
  std::string pattern = base + "/zorvane-test-XXXXXX";
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  path_ = pattern;
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string TempDir::file(const std::string& name) const { return path_ + "/" + name; }

std::string TempDir::write(const std::string& name, const std::string& contents) const {
  std::string path = file(name);
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream out(path, std::ios::binary);
  out << contents;
  return path;
}

ScopedEnv::ScopedEnv(std::string name, std::optional<std::string> value) : name_(std::move(name)) {
  if (const char* old = getenv(name_.c_str())) old_ = old;
  if (value) {
    setenv(name_.c_str(), value->c_str(), 1);
  } else {
    unsetenv(name_.c_str());
  }
}

ScopedEnv::~ScopedEnv() {
  if (old_) {
    setenv(name_.c_str(), old_->c_str(), 1);
  } else {
    unsetenv(name_.c_str());
  }
}

TempHome::TempHome()
    : home_("HOME", dir_.path()),
      data_("XDG_DATA_HOME", std::nullopt),
      state_("XDG_STATE_HOME", std::nullopt),
      config_("XDG_CONFIG_HOME", std::nullopt),
      cache_("XDG_CACHE_HOME", std::nullopt) {}

bool processGroupAlive(int group) {
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    std::string name = entry.path().filename();
    if (name.find_first_not_of("0123456789") != std::string::npos) continue;
    // "pid (comm) state ppid pgrp ...": the name may hold blanks and parentheses.
    std::string stat = readAll(entry.path().string() + "/stat");
    size_t close = stat.rfind(')');
    if (close == std::string::npos) continue;
    std::istringstream fields(stat.substr(close + 1));
    char state = 0;
    int parent = 0, processGroup = 0;
    if (!(fields >> state >> parent >> processGroup)) continue;
    if (processGroup == group && state != 'Z' && state != 'X') return true;
  }
  return false;
}

std::string readAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream buffer;
  buffer << in.rdbuf();
  return buffer.str();
}

std::vector<std::string> folderEntries(const std::string& folder) {
  std::vector<std::string> names;
  for (const auto& item : std::filesystem::directory_iterator(folder)) names.push_back(item.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

ScopedLogFile::ScopedLogFile(std::string path) : path_(std::move(path)) { Log::setFile(path_); }

ScopedLogFile::~ScopedLogFile() {
  Log::flush();
  Log::setFile("");
}

std::string ScopedLogFile::text() const {
  Log::flush();
  return readAll(path_);
}

}  // namespace zorvane::testing
