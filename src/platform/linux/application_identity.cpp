#include "platform/linux/application_identity.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <utility>

namespace zorvane {

namespace {

namespace fs = std::filesystem;

struct BrowserClass {
  const char* resClass;
  const char* bundleID;
};

// The browsers' WM_CLASS res_class and the identifiers the browser scripting knows
// them by.
constexpr std::array<BrowserClass, 5> kBrowsers{{
    {"Chromium", "org.chromium.Chromium"},
    {"Google-chrome", "com.google.Chrome"},
    {"Brave-browser", "com.brave.Browser"},
    {"Microsoft-edge", "com.microsoft.edgemac"},
    {"Vivaldi-stable", "com.vivaldi.Vivaldi"},
}};

std::string lowercased(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

std::string trimmedLine(const std::string& line) {
  size_t begin = line.find_first_not_of(" \t\r");
  if (begin == std::string::npos) return "";
  size_t end = line.find_last_not_of(" \t\r");
  return line.substr(begin, end - begin + 1);
}

// The file name of the program an Exec line runs: the first word that isn't `env` or an
// environment assignment, without quotes and folders.
std::string execProgram(const std::string& exec) {
  std::istringstream words(exec);
  std::string word;
  while (words >> word) {
    if (word == "env" || word.find('=') != std::string::npos) continue;
    word.erase(std::remove(word.begin(), word.end(), '"'), word.end());
    return fs::path(word).filename().string();
  }
  return "";
}

std::string readFirstLine(const std::string& path) {
  std::ifstream in(path);
  std::string line;
  std::getline(in, line);
  return line;
}

}  // namespace

ApplicationIdentity::ApplicationIdentity(std::vector<std::string> dataDirs) : dataDirs_(std::move(dataDirs)) {}

ApplicationIdentity ApplicationIdentity::fromEnvironment() {
  std::vector<std::string> dirs;
  const char* dataHome = std::getenv("XDG_DATA_HOME");
  const char* home = std::getenv("HOME");
  if (dataHome && *dataHome)
    dirs.push_back(dataHome);
  else if (home && *home)
    dirs.push_back(std::string(home) + "/.local/share");
  const char* dataDirs = std::getenv("XDG_DATA_DIRS");
  std::string list = dataDirs && *dataDirs ? dataDirs : "/usr/local/share:/usr/share";
  std::istringstream parts(list);
  std::string part;
  while (std::getline(parts, part, ':'))
    if (!part.empty()) dirs.push_back(part);
  return ApplicationIdentity(std::move(dirs));
}

std::string ApplicationIdentity::executableName(int32_t pid) {
  if (pid <= 0) return "";
  std::string proc = "/proc/" + std::to_string(pid);
  std::error_code error;
  fs::path exe = fs::read_symlink(proc + "/exe", error);
  if (!error && !exe.empty()) {
    std::string name = exe.filename().string();
    // A replaced executable reads "name (deleted)".
    const std::string deleted = " (deleted)";
    if (name.size() > deleted.size() && name.ends_with(deleted)) name.resize(name.size() - deleted.size());
    return name;
  }
  return trimmedLine(readFirstLine(proc + "/comm"));
}

void ApplicationIdentity::loadEntries() {
  if (loaded_) return;
  loaded_ = true;
  for (const std::string& dataDir : dataDirs_) {
    fs::path root = fs::path(dataDir) / "applications";
    std::error_code error;
    if (!fs::is_directory(root, error)) continue;
    for (fs::recursive_directory_iterator it(root, fs::directory_options::skip_permission_denied, error), end;
         !error && it != end; it.increment(error)) {
      if (it->path().extension() != ".desktop" || !it->is_regular_file(error)) continue;
      // The desktop-file id: the path below applications/ with '/' as '-'.
      std::string id = fs::relative(it->path(), root, error).replace_extension().string();
      if (error) break;
      std::replace(id.begin(), id.end(), '/', '-');
      std::string key = lowercased(id);
      if (entries_.count(key)) continue;  // an earlier folder takes precedence

      std::ifstream in(it->path());
      std::string line;
      bool inMainGroup = false, hidden = false, application = true;
      DesktopEntry entry{id, "", "", ""};
      while (std::getline(in, line)) {
        line = trimmedLine(line);
        if (line.empty() || line[0] == '#') continue;
        if (line[0] == '[') {
          inMainGroup = line == "[Desktop Entry]";
          continue;
        }
        if (!inMainGroup) continue;
        size_t equals = line.find('=');
        if (equals == std::string::npos) continue;
        std::string name = trimmedLine(line.substr(0, equals));
        std::string value = trimmedLine(line.substr(equals + 1));
        if (name == "Name")
          entry.name = value;
        else if (name == "StartupWMClass")
          entry.startupWMClass = value;
        else if (name == "Exec")
          entry.exec = execProgram(value);
        else if (name == "Hidden")
          hidden = value == "true";
        else if (name == "Type")
          application = value == "Application";
      }
      // A hidden entry still shadows the same id further down the path.
      if (hidden || !application) entry = DesktopEntry{id, "", "", ""};
      entries_.emplace(key, std::move(entry));
    }
  }
}

const ApplicationIdentity::DesktopEntry* ApplicationIdentity::entryByID(const std::string& id) {
  if (id.empty()) return nullptr;
  loadEntries();
  auto it = entries_.find(lowercased(id));
  if (it == entries_.end() || it->second.name.empty()) return nullptr;
  return &it->second;
}

const ApplicationIdentity::DesktopEntry* ApplicationIdentity::entryForWindow(const WindowIdentity& window) {
  loadEntries();
  if (!window.resClass.empty()) {
    std::string wanted = lowercased(window.resClass);
    for (const auto& [key, entry] : entries_)
      if (!entry.name.empty() && !entry.startupWMClass.empty() && lowercased(entry.startupWMClass) == wanted)
        return &entry;
  }
  if (const DesktopEntry* entry = entryByID(window.resClass)) return entry;
  return entryByID(window.resName);
}

ApplicationInfo ApplicationIdentity::identify(const WindowIdentity& window, int32_t pid) {
  const DesktopEntry* byWindow = entryForWindow(window);
  std::string bundleID;
  for (const BrowserClass& browser : kBrowsers)
    if (window.resClass == browser.resClass) bundleID = browser.bundleID;
  if (bundleID.empty()) bundleID = window.gtkApplicationID;
  if (bundleID.empty() && byWindow) bundleID = byWindow->id;
  if (bundleID.empty()) bundleID = window.resClass;

  std::string name;
  if (const DesktopEntry* entry = entryByID(bundleID)) name = entry->name;
  if (name.empty() && byWindow) name = byWindow->name;
  if (name.empty()) name = executableName(pid);
  return {bundleID, name};
}

std::optional<ApplicationInfo> ApplicationIdentity::identifyProcess(int32_t pid) {
  std::string program = executableName(pid);
  if (program.empty()) return std::nullopt;
  loadEntries();
  if (const DesktopEntry* entry = entryByID(program)) return ApplicationInfo{entry->id, entry->name};
  for (const auto& [key, entry] : entries_)
    if (!entry.name.empty() && entry.exec == program) return ApplicationInfo{entry.id, entry.name};
  return std::nullopt;
}

}  // namespace zorvane
