#include "platform/linux/devtools_port.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <netinet/in.h>
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
#include <set>
#include <sstream>
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

// --- Who listens on the port ------------------------------------------------------------

// An address word as /proc/net/tcp prints it: the network-order bytes read as a number
// in host order ("0100007F" for 127.0.0.1 on a little-endian host).
std::string procWord(uint32_t hostOrder) {
  char text[9];
  std::snprintf(text, sizeof text, "%08X", unsigned(htonl(hostOrder)));
  return text;
}

// The inodes of the sockets that listen on `port` and would take a connection to
// 127.0.0.1: bound to it, to 0.0.0.0, to :: (which takes IPv4 too unless it is
// IPv6-only, which these tables don't tell), or to the IPv4-mapped forms.
std::set<unsigned long> loopbackListeners(const std::string& procRoot, uint16_t port) {
  const std::string zero = procWord(0), loopback = procWord(INADDR_LOOPBACK), mapped = procWord(0xFFFF);
  const std::set<std::string> covering = {loopback, zero, zero + zero + zero + zero, zero + zero + mapped + loopback,
                                          zero + zero + mapped + zero};
  constexpr std::string_view kListen = "0A";
  std::set<unsigned long> inodes;
  for (const char* table : {"/net/tcp", "/net/tcp6"}) {
    auto contents = readSmallFile(procRoot + table);
    if (!contents) continue;
    std::istringstream lines(*contents);
    std::string line;
    std::getline(lines, line);  // the column names
    while (std::getline(lines, line)) {
      std::istringstream fields(line);
      std::string slot, local, remote, state, queues, timer, retransmits, uid, timeout;
      unsigned long inode = 0;
      if (!(fields >> slot >> local >> remote >> state >> queues >> timer >> retransmits >> uid >> timeout >> inode))
        continue;
      size_t colon = local.find(':');
      if (colon == std::string::npos || state != kListen || inode == 0) continue;
      if (std::strtoul(local.c_str() + colon + 1, nullptr, 16) != port) continue;
      std::string address = local.substr(0, colon);
      for (char& c : address) c = char(std::toupper(static_cast<unsigned char>(c)));
      if (covering.count(address)) inodes.insert(inode);
    }
  }
  return inodes;
}

// The socket inodes among a process's open files; nothing when they can't be read.
std::optional<std::set<unsigned long>> socketsOf(const std::string& procRoot, int32_t pid) {
  std::string folder = procRoot + "/" + std::to_string(pid) + "/fd";
  DIR* files = ::opendir(folder.c_str());
  if (!files) return std::nullopt;
  std::set<unsigned long> inodes;
  std::array<char, 64> target{};
  while (dirent* entry = ::readdir(files)) {
    if (entry->d_name[0] == '.') continue;
    ssize_t length = ::readlink((folder + "/" + entry->d_name).c_str(), target.data(), target.size() - 1);
    if (length <= 0) continue;
    std::string_view link(target.data(), size_t(length));
    constexpr std::string_view kSocket = "socket:[";
    if (link.substr(0, kSocket.size()) != kSocket) continue;
    inodes.insert(std::strtoul(std::string(link.substr(kSocket.size())).c_str(), nullptr, 10));
  }
  ::closedir(files);
  return inodes;
}

// The process that has this socket open, where one can be seen; 0 when none.
int32_t holderOf(const std::string& procRoot, unsigned long inode) {
  DIR* folder = ::opendir(procRoot.c_str());
  if (!folder) return 0;
  int32_t holder = 0;
  while (dirent* entry = ::readdir(folder)) {
    if (!std::isdigit(static_cast<unsigned char>(entry->d_name[0]))) continue;
    int32_t pid = std::atoi(entry->d_name);
    if (auto sockets = socketsOf(procRoot, pid); sockets && sockets->count(inode)) {
      holder = pid;
      break;
    }
  }
  ::closedir(folder);
  return holder;
}

// Succeeds when the browser process holds every socket that listens on the port for
// loopback connections, and there is at least one.
Expected<void> checkListener(const std::string& procRoot, const DevToolsPort& found, BrowserApp app,
                             const std::optional<std::string>& portArgument) {
  std::string portText = std::to_string(found.port);
  std::set<unsigned long> listeners = loopbackListeners(procRoot, found.port);
  if (listeners.empty()) {
    // A DevToolsActivePort left behind by an earlier run names a port nobody serves.
    if (!found.fromCommandLine) return Failure{noDebuggingPortText(app)};
    return Failure{std::string(appName(app)) + " was started with --remote-debugging-port=" +
                   portArgument.value_or(portText) + " but nothing listens on port " + portText +
                   " (is it still starting?)."};
  }
  auto own = socketsOf(procRoot, found.browserPid);
  if (!own) {
    return Failure{"Couldn't check who listens on port " + portText + ": the open files of " +
                   std::string(appName(app)) + " (pid " + std::to_string(found.browserPid) +
                   ") can't be read, so its pages won't be scripted through that port."};
  }
  for (unsigned long inode : listeners) {
    if (own->count(inode)) continue;
    int32_t holder = holderOf(procRoot, inode);
    std::string who = holder > 0 ? processName(procRoot, holder) + " (pid " + std::to_string(holder) + ")"
                                 : "another program";
    return Failure{"Port " + portText + ", where " + std::string(appName(app)) +
                   "'s debugging server should be, is held by " + who + ", not by the browser (pid " +
                   std::to_string(found.browserPid) + "), so its pages won't be scripted through it."};
  }
  return ok();
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
    if (port && *port > 0) {
      DevToolsPort found{current, *port, true};
      if (auto held = checkListener(procRoot, found, app, portArgument); !held) return Failure{held.error()};
      return found;
    }
  }
  // Port 0 (the browser chose one) or a debugging server switched on inside the browser:
  // the browser writes the port it listens on into its profile folder.
  std::string activePortPath = profileFolder(procRoot, current, *info, app) + "/DevToolsActivePort";
  if (auto contents = readSmallFile(activePortPath)) {
    std::string_view firstLine(*contents);
    firstLine = firstLine.substr(0, firstLine.find('\n'));
    std::optional<uint16_t> port = parsePort(firstLine);
    if (port && *port > 0) {
      DevToolsPort found{current, *port, false};
      if (auto held = checkListener(procRoot, found, app, portArgument); !held) return Failure{held.error()};
      return found;
    }
  }
  if (portArgument) {
    return Failure{std::string(appName(app)) + " was started with --remote-debugging-port=" + *portArgument +
                   " but hasn't told which port it listens on (no " + activePortPath + ")."};
  }
  return Failure{noDebuggingPortText(app)};
}

}  // namespace zorvane
