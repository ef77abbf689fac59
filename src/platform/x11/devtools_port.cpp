#include "platform/x11/devtools_port.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <optional>
#include <string_view>
#include <vector>

namespace zorvane {
namespace {

// Helpers are at most this many levels below the browser (zygote, then renderer).
constexpr int kMaxParentSteps = 8;
constexpr size_t kMaxProcFileBytes = 1 << 20;

std::optional<std::string> readSmallFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return std::nullopt;
  std::string contents;
  std::array<char, 4096> buffer{};
  while (file && contents.size() < kMaxProcFileBytes) {
    file.read(buffer.data(), buffer.size());
    contents.append(buffer.data(), size_t(file.gcount()));
  }
  return contents;
}

std::vector<std::string> splitNul(const std::string& text) {
  std::vector<std::string> parts;
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\0', start);
    if (end == std::string::npos) end = text.size();
    parts.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return parts;
}

struct ProcessInfo {
  std::vector<std::string> arguments;
  // Chromium rewrites its command line into one string of arguments joined by blanks;
  // then `arguments` are its blank-separated words and this is the whole string.
  std::string rewritten;
  int32_t parent = 0;
};

std::vector<std::string> splitBlanks(const std::string& text) {
  std::vector<std::string> words;
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find(' ', start);
    if (end == std::string::npos) end = text.size();
    if (end > start) words.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return words;
}

std::optional<ProcessInfo> readProcess(const std::string& procRoot, int32_t pid) {
  std::string base = procRoot + "/" + std::to_string(pid);
  auto commandLine = readSmallFile(base + "/cmdline");
  auto stat = readSmallFile(base + "/stat");
  if (!commandLine || !stat) return std::nullopt;
  ProcessInfo info;
  info.arguments = splitNul(*commandLine);
  if (info.arguments.size() == 1 && info.arguments.front().find(' ') != std::string::npos) {
    info.rewritten = info.arguments.front();
    info.arguments = splitBlanks(info.rewritten);
  }
  // "pid (comm) state ppid ...": the name may hold spaces and parentheses, so read after
  // the last ')'.
  size_t close = stat->rfind(')');
  if (close == std::string::npos) return std::nullopt;
  char state = 0;
  int parent = 0;
  if (std::sscanf(stat->c_str() + close + 1, " %c %d", &state, &parent) != 2) return std::nullopt;
  info.parent = parent;
  return info;
}

std::optional<std::string> argumentValue(const std::vector<std::string>& arguments, std::string_view name) {
  for (const std::string& argument : arguments) {
    if (argument.size() > name.size() && argument.compare(0, name.size(), name) == 0 && argument[name.size()] == '=')
      return argument.substr(name.size() + 1);
  }
  return std::nullopt;
}

bool isHelper(const ProcessInfo& info) { return argumentValue(info.arguments, "--type").has_value(); }

std::string processName(const std::string& procRoot, int32_t pid) {
  std::string name = readSmallFile(procRoot + "/" + std::to_string(pid) + "/comm").value_or("");
  while (!name.empty() && std::isspace(static_cast<unsigned char>(name.back()))) name.pop_back();
  return name.empty() ? "process " + std::to_string(pid) : name;
}

std::string executableName(const std::string& procRoot, int32_t pid, const ProcessInfo& info) {
  std::array<char, 4096> target{};
  ssize_t length = ::readlink((procRoot + "/" + std::to_string(pid) + "/exe").c_str(), target.data(), target.size() - 1);
  std::string path = length > 0 ? std::string(target.data(), size_t(length)) : std::string();
  if (path.empty() && !info.arguments.empty()) path = info.arguments.front();
  return path.substr(path.find_last_of('/') + 1);
}

// The browser itself, or a process whose helpers carry --type= (what every browser of the
// Chromium family starts).
bool isChromiumFamily(const std::string& procRoot, int32_t pid, const ProcessInfo& info) {
  static constexpr std::array<std::string_view, 9> kExecutables = {
      "chromium", "chromium-browser", "chrome", "google-chrome", "brave", "msedge", "vivaldi-bin", "opera", "thorium"};
  std::string executable = executableName(procRoot, pid, info);
  if (std::find(kExecutables.begin(), kExecutables.end(), executable) != kExecutables.end()) return true;
  if (argumentValue(info.arguments, "--remote-debugging-port")) return true;

  DIR* folder = ::opendir(procRoot.c_str());
  if (!folder) return false;
  bool found = false;
  while (dirent* entry = ::readdir(folder)) {
    if (!std::isdigit(static_cast<unsigned char>(entry->d_name[0]))) continue;
    auto child = readProcess(procRoot, std::atoi(entry->d_name));
    if (child && child->parent == pid && isHelper(*child)) {
      found = true;
      break;
    }
  }
  ::closedir(folder);
  return found;
}

// The browser's own environment, where readable, else ours.
std::string environmentOf(const std::string& procRoot, int32_t pid, std::string_view name) {
  if (auto environment = readSmallFile(procRoot + "/" + std::to_string(pid) + "/environ")) {
    for (const std::string& entry : splitNul(*environment)) {
      if (entry.size() > name.size() && entry.compare(0, name.size(), name) == 0 && entry[name.size()] == '=')
        return entry.substr(name.size() + 1);
    }
  }
  const char* own = std::getenv(std::string(name).c_str());
  return own ? own : "";
}

// How each browser of the family is started, and where its profile lives under the
// configuration folder by default.
struct BrowserCommand {
  const char* command;
  const char* profileFolder;
};

BrowserCommand browserCommand(BrowserApp app) {
  switch (app) {
    case BrowserApp::chrome:
      return {"google-chrome", "google-chrome"};
    case BrowserApp::brave:
      return {"brave-browser", "BraveSoftware/Brave-Browser"};
    case BrowserApp::edge:
      return {"microsoft-edge", "microsoft-edge"};
    case BrowserApp::vivaldi:
      return {"vivaldi", "vivaldi"};
    case BrowserApp::chromium:
    case BrowserApp::arc:
    case BrowserApp::safari:
      break;
  }
  return {"chromium", "chromium"};
}

bool isDirectory(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// --user-data-dir's value. In a rewritten command line a folder with blanks in its name
// spans several words: the longest run of words that names a folder wins.
std::optional<std::string> userDataDir(const ProcessInfo& info) {
  std::optional<std::string> value = argumentValue(info.arguments, "--user-data-dir");
  if (!value || info.rewritten.empty()) return value;
  constexpr std::string_view kFlag = "--user-data-dir=";
  size_t at = info.rewritten.find(kFlag);
  if (at == std::string::npos) return value;
  std::string rest = info.rewritten.substr(at + kFlag.size());
  for (size_t blank = rest.rfind(' '); blank != std::string::npos && blank > 0; blank = rest.rfind(' ', blank - 1)) {
    std::string candidate = rest.substr(0, blank);
    if (candidate.size() > value->size() && isDirectory(candidate)) return candidate;
  }
  return isDirectory(rest) ? rest : value;
}

std::string profileFolder(const std::string& procRoot, int32_t pid, const ProcessInfo& info, BrowserApp app) {
  if (auto given = userDataDir(info); given && !given->empty()) {
    if (given->front() == '/') return *given;
    // Relative to where the browser was started.
    std::array<char, 4096> cwd{};
    ssize_t length = ::readlink((procRoot + "/" + std::to_string(pid) + "/cwd").c_str(), cwd.data(), cwd.size() - 1);
    return length > 0 ? std::string(cwd.data(), size_t(length)) + "/" + *given : *given;
  }
  std::string configHome = environmentOf(procRoot, pid, "XDG_CONFIG_HOME");
  if (configHome.empty()) configHome = environmentOf(procRoot, pid, "HOME") + "/.config";
  return configHome + "/" + browserCommand(app).profileFolder;
}

std::optional<uint16_t> parsePort(std::string_view text) {
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) text.remove_suffix(1);
  if (text.empty() || text.size() > 5) return std::nullopt;
  unsigned port = 0;
  for (char c : text) {
    if (!std::isdigit(static_cast<unsigned char>(c))) return std::nullopt;
    port = port * 10 + unsigned(c - '0');
  }
  if (port > 65535) return std::nullopt;
  return uint16_t(port);
}

}  // namespace

std::string noDebuggingPortText(BrowserApp app) {
  return std::string(appName(app)) +
         " wasn't started with a debugging port, so its pages can't be scripted. Quit it and start it with "
         "--remote-debugging-port=9222 (for example: " +
         browserCommand(app).command + std::string(" --remote-debugging-port=9222).");
}

Expected<DevToolsPort> findDevToolsPort(int32_t pid, BrowserApp app, const std::string& procRoot) {
  if (!isChromeFamily(app)) return Failure{std::string(appName(app)) + " can't be scripted on this system."};
  if (pid <= 0) return Failure{"The browser window has no process id, so its pages can't be scripted."};

  int32_t current = pid;
  std::optional<ProcessInfo> info = readProcess(procRoot, current);
  if (!info) return Failure{"The browser's process " + std::to_string(pid) + " is gone."};
  for (int step = 0; step < kMaxParentSteps && isHelper(*info); ++step) {
    int32_t parent = info->parent;
    auto parentInfo = parent > 1 ? readProcess(procRoot, parent) : std::nullopt;
    if (!parentInfo) break;
    current = parent;
    info = std::move(parentInfo);
  }
  if (isHelper(*info) || !isChromiumFamily(procRoot, current, *info)) {
    return Failure{"This window's process (" + processName(procRoot, pid) + ", pid " + std::to_string(pid) +
                   ") isn't a Chromium-family browser, so its pages can't be scripted."};
  }

  std::optional<std::string> portArgument = argumentValue(info->arguments, "--remote-debugging-port");
  if (portArgument) {
    std::optional<uint16_t> port = parsePort(*portArgument);
    if (port && *port > 0) return DevToolsPort{current, *port, true};
  }
  // Port 0 (the browser chose one) or a debugging server switched on inside the browser:
  // the browser writes the port it listens on into its profile folder.
  std::string activePortPath = profileFolder(procRoot, current, *info, app) + "/DevToolsActivePort";
  if (auto contents = readSmallFile(activePortPath)) {
    std::string_view firstLine(*contents);
    firstLine = firstLine.substr(0, firstLine.find('\n'));
    std::optional<uint16_t> port = parsePort(firstLine);
    if (port && *port > 0) return DevToolsPort{current, *port, false};
  }
  if (portArgument) {
    return Failure{std::string(appName(app)) + " was started with --remote-debugging-port=" + *portArgument +
                   " but hasn't told which port it listens on (no " + activePortPath + ")."};
  }
  return Failure{noDebuggingPortText(app)};
}

}  // namespace zorvane
