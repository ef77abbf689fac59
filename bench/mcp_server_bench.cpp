// Whole-process benchmark of the tool server, `zorvane --mcp`, beside a minimal MCP
// server on the official TypeScript SDK (bench/mcp_sdk_baseline.mjs) measured in the
// same run:
//
//   start        from spawning the process to the complete `initialize` reply, over
//                --starts fresh processes (the request is written as soon as the process
//                exists, as an agent does);
//   round trip   `tools/call list_targets` in one process, request written to reply
//                read, over --calls calls after a short warm-up.
//
// Goals: a start's median of 2 ms or less, and 100 times faster than the SDK server's;
// a round trip's median of 20 us or less.
//
// Usage: mcp_server_bench [path-to-zorvane] [--starts N] [--calls N]
//
// The baseline needs node and the SDK that scripts/install-agent-cli.sh mcp-sdk installs
// (ZORVANE_TOOLS_DIR overrides ~/.cache/zorvane-tools); without them that half is skipped
// with a line saying so. Both servers get the same one-entry scope file. Every child is
// bounded: a reply that takes longer than kReplyTimeoutMs ends the measurement and the
// child is killed. This program reports; it never fails a build.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "figure_line.h"

#ifndef ZORVANE_EXECUTABLE
#define ZORVANE_EXECUTABLE "zorvane"
#endif
#ifndef ZORVANE_BENCH_DIR
#define ZORVANE_BENCH_DIR "bench"
#endif

namespace {

constexpr int kReplyTimeoutMs = 20000;
constexpr int kExitTimeoutMs = 5000;
constexpr int kWarmupCalls = 200;
constexpr double kStartTargetMs = 2;
constexpr double kStartTargetRatio = 100;  // the SDK server's start over ours
constexpr double kRoundTripTargetUs = 20;

using Clock = std::chrono::steady_clock;

const char kInitialize[] =
    "{\"jsonrpc\":\"2.0\",\"id\":0,\"method\":\"initialize\",\"params\":{\"protocolVersion\":\"2025-06-18\","
    "\"capabilities\":{},\"clientInfo\":{\"name\":\"mcp_server_bench\",\"version\":\"1.0\"}}}\n";
const char kInitialized[] = "{\"jsonrpc\":\"2.0\",\"method\":\"notifications/initialized\"}\n";
const char kScope[] =
    "{\"entries\":[{\"name\":\"Notes\",\"kind\":\"app window\",\"windowID\":7,\"bundleID\":\"org.gnome.TextEditor\"}]}";
// What a correct list_targets reply holds: a timing of anything else is no timing.
const char kListing[] = "0: Notes [app window, org.gnome.TextEditor]";

struct Server {
  std::string label;
  std::vector<std::string> argv;
  std::vector<std::string> env;
};

// A running server: its pipes and what it has written that isn't consumed yet.
class Child {
 public:
  static std::optional<Child> spawn(const Server& server, std::string& error) {
    int toChild[2], fromChild[2];
    if (pipe2(toChild, O_CLOEXEC) != 0) return fail(error, "pipe");
    if (pipe2(fromChild, O_CLOEXEC) != 0) {
      close(toChild[0]);
      close(toChild[1]);
      return fail(error, "pipe");
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, toChild[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, fromChild[1], STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    std::vector<char*> argv, envp;
    for (const std::string& arg : server.argv) argv.push_back(const_cast<char*>(arg.c_str()));
    argv.push_back(nullptr);
    for (const std::string& var : server.env) envp.push_back(const_cast<char*>(var.c_str()));
    envp.push_back(nullptr);
    pid_t pid = 0;
    int status = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    close(toChild[0]);
    close(fromChild[1]);
    if (status != 0) {
      close(toChild[1]);
      close(fromChild[0]);
      error = "can't start " + server.argv[0] + ": " + std::strerror(status);
      return std::nullopt;
    }
    return Child(pid, toChild[1], fromChild[0]);
  }

  Child(Child&& other) noexcept
      : pid_(std::exchange(other.pid_, -1)),
        in_(std::exchange(other.in_, -1)),
        out_(std::exchange(other.out_, -1)),
        pending_(std::move(other.pending_)) {}
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  ~Child() { finish(); }

  bool send(std::string_view bytes) {
    while (!bytes.empty()) {
      ssize_t n = write(in_, bytes.data(), bytes.size());
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) return false;
      bytes.remove_prefix(static_cast<size_t>(n));
    }
    return true;
  }

  // The next line the server writes, without its line feed; absent on end of output or
  // after kReplyTimeoutMs without one.
  std::optional<std::string> readLine() {
    for (;;) {
      if (size_t end = pending_.find('\n', scanned_); end != std::string::npos) {
        std::string line = pending_.substr(0, end);
        pending_.erase(0, end + 1);
        scanned_ = 0;
        return line;
      }
      scanned_ = pending_.size();
      pollfd ready{out_, POLLIN, 0};
      int polled = poll(&ready, 1, kReplyTimeoutMs);
      if (polled < 0 && errno == EINTR) continue;
      if (polled <= 0) return std::nullopt;
      char chunk[65536];
      ssize_t n = read(out_, chunk, sizeof chunk);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) return std::nullopt;
      pending_.append(chunk, static_cast<size_t>(n));
    }
  }

  // Closes the server's input, which ends it; kills it if it hasn't ended in time.
  void finish() {
    if (in_ >= 0) close(std::exchange(in_, -1));
    if (out_ >= 0) close(std::exchange(out_, -1));
    if (pid_ <= 0) return;
    auto deadline = Clock::now() + std::chrono::milliseconds(kExitTimeoutMs);
    for (;;) {
      int status = 0;
      if (waitpid(pid_, &status, WNOHANG) != 0) break;
      if (Clock::now() > deadline) {
        kill(pid_, SIGKILL);
        waitpid(pid_, &status, 0);
        break;
      }
      usleep(1000);
    }
    pid_ = -1;
  }

 private:
  Child(pid_t pid, int in, int out) : pid_(pid), in_(in), out_(out) {}
  static std::optional<Child> fail(std::string& error, const char* what) {
    error = std::string(what) + ": " + std::strerror(errno);
    return std::nullopt;
  }

  pid_t pid_;
  int in_;
  int out_;
  std::string pending_;
  size_t scanned_ = 0;
};

struct Figures {
  std::vector<double> startsMs;
  std::vector<double> tripsUs;
  std::string error;  // why the measurement stopped early, if it did
};

double elapsed(Clock::time_point from, Clock::time_point to, double unitsPerSecond) {
  return std::chrono::duration<double>(to - from).count() * unitsPerSecond;
}

// One process start, timed to the complete initialize reply.
std::optional<double> timeStart(const Server& server, std::string& error) {
  Clock::time_point begin = Clock::now();
  auto child = Child::spawn(server, error);
  if (!child) return std::nullopt;
  if (!child->send(kInitialize)) {
    error = server.label + ": couldn't write the initialize request";
    return std::nullopt;
  }
  auto reply = child->readLine();
  Clock::time_point end = Clock::now();
  if (!reply || reply->find("\"result\"") == std::string::npos || reply->find("protocolVersion") == std::string::npos) {
    error = server.label + ": no initialize result (got: " + reply.value_or("<nothing>").substr(0, 200) + ")";
    return std::nullopt;
  }
  return elapsed(begin, end, 1e3);
}

// The floor under any start on this machine at this moment: /bin/true, spawned the same
// way, until its output closes.
std::optional<double> timeFloor(const Server& server, std::string& error) {
  Clock::time_point begin = Clock::now();
  auto child = Child::spawn(server, error);
  if (!child) return std::nullopt;
  auto nothing = child->readLine();
  Clock::time_point end = Clock::now();
  if (nothing) return std::nullopt;
  return elapsed(begin, end, 1e3);
}

bool timeRoundTrips(const Server& server, int calls, Figures& figures) {
  auto child = Child::spawn(server, figures.error);
  if (!child) return false;
  if (!child->send(kInitialize) || !child->readLine() || !child->send(kInitialized)) {
    figures.error = server.label + ": initialize failed";
    return false;
  }
  figures.tripsUs.reserve(static_cast<size_t>(calls));
  for (int i = 0; i < kWarmupCalls + calls; ++i) {
    std::string request = "{\"jsonrpc\":\"2.0\",\"id\":" + std::to_string(i + 1) +
                          ",\"method\":\"tools/call\",\"params\":{\"name\":\"list_targets\",\"arguments\":{}}}\n";
    Clock::time_point begin = Clock::now();
    bool sent = child->send(request);
    auto reply = sent ? child->readLine() : std::nullopt;
    Clock::time_point end = Clock::now();
    if (!reply || reply->find(kListing) == std::string::npos) {
      figures.error = server.label + ": call " + std::to_string(i + 1) + " got no listing (got: " +
                      reply.value_or("<nothing>").substr(0, 200) + ")";
      return false;
    }
    if (i >= kWarmupCalls) figures.tripsUs.push_back(elapsed(begin, end, 1e6));
  }
  return true;
}

double percentile(std::vector<double> values, double fraction) {
  if (values.empty()) return NAN;
  std::sort(values.begin(), values.end());
  // Nearest rank: the smallest value with at least `fraction` of them at or below it.
  size_t rank = static_cast<size_t>(std::ceil(fraction * static_cast<double>(values.size())));
  return values[std::clamp<size_t>(rank, 1, values.size()) - 1];
}

std::string environment(const char* name, const std::string& fallback) {
  const char* value = std::getenv(name);
  return value != nullptr && value[0] != '\0' ? value : fallback;
}

bool isFile(const std::string& path) {
  struct stat info;
  return stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

// node on PATH, or nothing.
std::optional<std::string> findNode() {
  std::string path = environment("PATH", "/usr/bin:/bin");
  size_t start = 0;
  while (start <= path.size()) {
    size_t end = path.find(':', start);
    if (end == std::string::npos) end = path.size();
    std::string candidate = path.substr(start, end - start) + "/node";
    if (end > start && access(candidate.c_str(), X_OK) == 0) return candidate;
    start = end + 1;
  }
  return std::nullopt;
}

std::string commandOutput(const std::string& command) {
  std::string out;
  if (FILE* pipe = popen(command.c_str(), "r")) {
    char buffer[256];
    while (fgets(buffer, sizeof buffer, pipe) != nullptr) out += buffer;
    pclose(pipe);
  }
  while (!out.empty() && (out.back() == '\n' || out.back() == '\r')) out.pop_back();
  return out;
}

std::string formatted(double value, const char* unit) {
  if (std::isnan(value)) return "-";
  char text[64];
  std::snprintf(text, sizeof text, value < 10 ? "%.2f %s" : value < 100 ? "%.1f %s" : "%.0f %s", value, unit);
  return text;
}

void printRow(const char* what, double ours, double theirs, const char* unit) {
  std::string ratio = "-";
  if (!std::isnan(ours) && !std::isnan(theirs) && ours > 0) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1fx", theirs / ours);
    ratio = text;
  }
  std::printf("  %-34s %14s %14s %10s\n", what, formatted(ours, unit).c_str(), formatted(theirs, unit).c_str(),
              ratio.c_str());
}

void printTarget(const char* what, double value, double target, const char* unit) {
  std::printf("  %-34s %s (%s against %s)\n", what,
              std::isnan(value) ? "not measured" : value <= target ? "met" : "MISSED", formatted(value, unit).c_str(),
              formatted(target, unit).c_str());
}

int usage(const char* self) {
  std::fprintf(stderr, "usage: %s [path-to-zorvane] [--starts N] [--calls N]\n", self);
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  std::string zorvane = ZORVANE_EXECUTABLE;
  int starts = 100;
  int calls = 10000;
  for (int i = 1; i < argc; ++i) {
    std::string_view arg = argv[i];
    if ((arg == "--starts" || arg == "--calls") && i + 1 < argc) {
      int value = std::atoi(argv[++i]);
      if (value <= 0) return usage(argv[0]);
      (arg == "--starts" ? starts : calls) = value;
    } else if (!arg.starts_with("-")) {
      zorvane = std::string(arg);
    } else {
      return usage(argv[0]);
    }
  }
  if (access(zorvane.c_str(), X_OK) != 0) {
    std::fprintf(stderr, "mcp_server_bench: no executable at %s\n", zorvane.c_str());
    zorvane::printNotRun("no executable at " + zorvane);
    return 1;
  }

  // A scratch folder: the scope file, a home, and a socket path nobody listens on.
  char folderTemplate[] = "/tmp/zorvane-mcp-bench-XXXXXX";
  if (mkdtemp(folderTemplate) == nullptr) {
    std::perror("mcp_server_bench: mkdtemp");
    return 1;
  }
  std::string work = folderTemplate;
  std::string scope = work + "/scope.json";
  if (FILE* file = std::fopen(scope.c_str(), "w")) {
    std::fputs(kScope, file);
    std::fclose(file);
  }
  std::vector<std::string> env = {"PATH=" + environment("PATH", "/usr/bin:/bin"), "HOME=" + work, "SHELL=/bin/sh",
                                  "LANG=C.UTF-8", "ZORVANE_IPC_SOCK=" + work + "/ipc.sock"};

  Server ours{"zorvane", {zorvane, "--mcp", "--scope", scope}, env};

  std::optional<Server> baseline;
  std::string baselineNote;
  std::string nodeModules =
      environment("ZORVANE_TOOLS_DIR", environment("HOME", "") + "/.cache/zorvane-tools") + "/mcp-sdk/node_modules";
  std::string sdkPackage = nodeModules + "/@modelcontextprotocol/sdk/package.json";
  std::string script = std::string(ZORVANE_BENCH_DIR) + "/mcp_sdk_baseline.mjs";
  auto node = findNode();
  if (!node) {
    baselineNote = "node isn't on PATH";
  } else if (!isFile(sdkPackage)) {
    baselineNote = "the MCP SDK isn't installed in " + nodeModules + " (scripts/install-agent-cli.sh mcp-sdk)";
  } else if (!isFile(script)) {
    baselineNote = "no baseline server at " + script;
  } else {
    std::vector<std::string> nodeEnv = env;
    nodeEnv.push_back("NODE_PATH=" + nodeModules);
    baseline = Server{"sdk-node", {*node, script, "--scope", scope}, nodeEnv};
    std::string version = commandOutput(*node + " -p \"require('" + sdkPackage + "').version\" 2>/dev/null");
    std::string nodeVersion = commandOutput(*node + " --version 2>/dev/null");
    baselineNote = "official MCP TypeScript SDK " + version + " on Node " + nodeVersion;
  }

  std::printf("mcp_server_bench: %s\n", zorvane.c_str());
  std::printf("baseline: %s%s\n", baseline ? "" : "SKIPPED, ", baselineNote.c_str());
  std::printf("starts: %d per server, alternating; round trips: %d calls of tools/call list_targets after %d "
              "warm-up calls\n\n",
              starts, calls, kWarmupCalls);
  std::fflush(stdout);

  Figures zorvaneFigures, baselineFigures;
  Server floor{"true", {"/bin/true"}, env};
  std::vector<double> floorMs;
  for (int i = 0; i < starts; ++i) {
    std::string ignored;
    if (auto ms = timeFloor(floor, ignored)) floorMs.push_back(*ms);
    if (zorvaneFigures.error.empty()) {
      if (auto ms = timeStart(ours, zorvaneFigures.error)) zorvaneFigures.startsMs.push_back(*ms);
    }
    if (baseline && baselineFigures.error.empty()) {
      if (auto ms = timeStart(*baseline, baselineFigures.error)) baselineFigures.startsMs.push_back(*ms);
    }
  }
  timeRoundTrips(ours, calls, zorvaneFigures);
  if (baseline) timeRoundTrips(*baseline, calls, baselineFigures);

  std::printf("  %-34s %14s %14s %10s\n", "", "zorvane", baseline ? "sdk-node" : "sdk-node (-)", "sdk/zorvane");
  printRow("start -> initialize reply, median", percentile(zorvaneFigures.startsMs, 0.5),
           percentile(baselineFigures.startsMs, 0.5), "ms");
  printRow("start -> initialize reply, p99", percentile(zorvaneFigures.startsMs, 0.99),
           percentile(baselineFigures.startsMs, 0.99), "ms");
  printRow("start -> initialize reply, min", percentile(zorvaneFigures.startsMs, 0),
           percentile(baselineFigures.startsMs, 0), "ms");
  printRow("list_targets round trip, median", percentile(zorvaneFigures.tripsUs, 0.5),
           percentile(baselineFigures.tripsUs, 0.5), "us");
  printRow("list_targets round trip, p99", percentile(zorvaneFigures.tripsUs, 0.99),
           percentile(baselineFigures.tripsUs, 0.99), "us");
  std::printf("  (process floor: /bin/true spawned and ended, median %s, p99 %s)\n",
              formatted(percentile(floorMs, 0.5), "ms").c_str(), formatted(percentile(floorMs, 0.99), "ms").c_str());
  std::printf("\ntargets:\n");
  double start = percentile(zorvaneFigures.startsMs, 0.5), sdkStart = percentile(baselineFigures.startsMs, 0.5);
  double trip = percentile(zorvaneFigures.tripsUs, 0.5), sdkTrip = percentile(baselineFigures.tripsUs, 0.5);
  double ratio = start > 0 ? sdkStart / start : NAN;
  printTarget("start (median) <= 2 ms", start, kStartTargetMs, "ms");
  std::printf("  %-34s %s (%s against %s)\n", "start, SDK / zorvane >= 100x",
              std::isnan(ratio) ? "not measured" : ratio >= kStartTargetRatio ? "met" : "MISSED",
              formatted(ratio, "x").c_str(), formatted(kStartTargetRatio, "x").c_str());
  printTarget("round trip p50 <= 20 us", trip, kRoundTripTargetUs, "us");
  std::string why = baseline ? baselineFigures.error : baselineNote;
  if (!zorvaneFigures.error.empty()) why = zorvaneFigures.error;
  zorvane::printFigure("mcp --mcp start to initialize reply, median", start, "ms",
                       zorvane::Goal::atMost(kStartTargetMs), sdkStart, "the SDK server",
                       std::isnan(start) || std::isnan(sdkStart) ? why : "");
  zorvane::printFigure("mcp start, SDK server / --mcp", ratio, "x", zorvane::Goal::atLeast(kStartTargetRatio), NAN,
                       "-", std::isnan(ratio) ? why : "");
  zorvane::printFigure("mcp list_targets round trip, median", trip, "us", zorvane::Goal::atMost(kRoundTripTargetUs),
                       sdkTrip, "the SDK server", std::isnan(sdkTrip) ? why : "");
  for (const Figures* figures : {&zorvaneFigures, &baselineFigures}) {
    if (!figures->error.empty()) std::printf("stopped early: %s\n", figures->error.c_str());
  }

  std::string rm = "rm -rf '" + work + "'";
  (void)std::system(rm.c_str());
  return zorvaneFigures.error.empty() ? 0 : 1;
}
