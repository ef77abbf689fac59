// Drop resolution and anchors against real windows: Thunar's details view showing a
// folder of files, and Chromium with a debugging port.
//
//   resolve_file_row   a point on a file's row: the file, anchored on the row (goal <= 30 ms)
//   resolve_folder     a point on the folder window's empty area: its folder (<= 30 ms)
//   resolve_browser    a point on Chromium: its front tab over DevTools (<= 30 ms)
//   tick_window        WindowAnchor.tick, one window asked for (goal <= 1 ms)
//   tick_element       ElementAnchor.tick on the row: its frame and its window (<= 1 ms)
//   tick_hidden        HiddenAnchor.tick (nothing asked)
// Baseline, measured in the same run: the window list (every window, front to back),
// which resolve asks for once and tick never. The summary gives each time, its ratio to
// the goal and to the baseline. Needs a display, an accessibility bus and Thunar in its
// details view: run it as
//   tests/desktop/file_manager_desktop.sh scripts/headless-desktop.sh build/bench/drop_resolver_bench
// Google Benchmark's own flags apply. This program reports; it never fails a build.
#include <benchmark/benchmark.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "app/resolver/drop_resolver.h"
#include "platform/desktop.h"
#include "figure_line.h"
#include "summary_reporter.h"

using namespace zorvane;
using Clock = std::chrono::steady_clock;

namespace {

struct Fixture {
  std::unique_ptr<Desktop> desktop;
  std::unique_ptr<DropResolver> resolver;
  Point row, empty, browser;
  bool hasBrowser = false;
  std::shared_ptr<Anchor> windowAnchor, elementAnchor;
};
Fixture* fixture = nullptr;

pid_t spawn(std::vector<std::string> words) {
  std::vector<char*> argv;
  for (auto& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  pid_t pid = -1;
  if (posix_spawnp(&pid, argv[0], nullptr, nullptr, argv.data(), environ) != 0) return -1;
  return pid;
}

// Checks every 50 ms until `done` holds or `seconds` pass: the applications come up on
// their own time.
bool waitFor(const std::function<bool()>& done, int seconds) {
  for (auto deadline = Clock::now() + std::chrono::seconds(seconds); Clock::now() < deadline;) {
    if (done()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  return false;
}

std::optional<WindowInfo> windowOf(WindowService& windows, pid_t pid) {
  for (auto& window : windows.windows())
    if (window.ownerPID == pid && window.onScreen) return window;
  return std::nullopt;
}

std::shared_ptr<AccessibleElement> findCell(const std::shared_ptr<AccessibleElement>& element, const std::string& title,
                                            int depth) {
  if (element->role() == "AXCell" && element->title() == title) return element;
  if (depth > 16) return nullptr;
  auto children = element->children();
  if (!children) return nullptr;
  for (auto& child : *children)
    if (auto found = findCell(child, title, depth + 1)) return found;
  return nullptr;
}

void resolveAt(benchmark::State& state, Point Fixture::*point, Target::Kind kind) {
  for (auto _ : state) {
    auto resolved = fixture->resolver->resolve(fixture->*point);
    if (!resolved || resolved->target.kind() != kind) state.SkipWithError("the point resolved to something else");
  }
}

void windowList(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(fixture->desktop->services().windows.windows());
}

void tick(benchmark::State& state, std::shared_ptr<Anchor> anchor) {
  for (auto _ : state) {
    if (!anchor->tick()) state.SkipWithError("the anchor's target went away");
  }
}

void printSummary(const SummaryReporter& reporter) {
  auto time = [&](const char* name) { return reporter.of(name) * 1e3; };
  double baseline = time("window_list");
  std::printf("\nper operation; baseline = the window list (%.3f ms)\n", baseline);
  std::printf("%-18s %10s %8s %10s %12s  %s\n", "operation", "ms", "goal", "/ goal", "/ baseline", "");
  struct Row {
    const char* name;
    double goal;
  };
  const Row rows[] = {Row{"resolve_file_row", 30}, Row{"resolve_folder", 30}, Row{"resolve_browser", 30},
                      Row{"tick_window", 1},       Row{"tick_element", 1},    Row{"tick_hidden", 1}};
  for (Row row : rows) {
    double ms = time(row.name);
    if (ms == 0) continue;
    std::printf("%-18s %10.3f %8g %10.3f %12.2f  %s\n", row.name, ms, row.goal, ms / row.goal,
                baseline > 0 ? ms / baseline : 0.0, ms <= row.goal ? "met" : "MISSED");
  }
  for (Row row : rows) {
    double ms = time(row.name);
    printFigure(std::string("drop resolver ") + row.name, ms > 0 ? ms : NAN, "ms", Goal::atMost(row.goal),
                baseline > 0 ? baseline : NAN, "the window list");
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (!std::getenv("DISPLAY")) {
    std::printf("drop_resolver_bench needs a display: run it under tests/desktop/file_manager_desktop.sh\n");
    printNotRun("no display (run under tests/desktop/file_manager_desktop.sh)");
    return 0;
  }
  // The test wrapper's filter is not ours.
  std::vector<char*> args;
  for (int i = 0; i < argc; ++i)
    if (std::string(argv[i]).rfind("--gtest_", 0) != 0) args.push_back(argv[i]);
  int count = int(args.size());

  auto folder = std::filesystem::temp_directory_path() / ("zorvane-drop-bench-" + std::to_string(getpid()));
  std::filesystem::create_directories(folder / "data");
  for (int i = 0; i < 8; ++i) std::ofstream(folder / "data" / ("file" + std::to_string(i) + ".txt")) << i;

  Fixture state;
  fixture = &state;
  state.desktop = Desktop::open();
  state.resolver = std::make_unique<DropResolver>(state.desktop->services());
  DesktopServices& services = state.desktop->services();
  pid_t thunar = spawn({"thunar", (folder / "data").string()});
  pid_t chromium = spawn({"chromium", "--no-sandbox", "--disable-gpu", "--no-first-run", "--no-default-browser-check",
                          "--disable-background-networking", "--password-store=basic", "--remote-debugging-port=9347",
                          "--user-data-dir=" + (folder / "profile").string(), "--window-position=950,50",
                          "--window-size=320,400", "data:text/html,<title>Bench</title>"});

  int status = 0;
  std::optional<WindowInfo> files;
  std::shared_ptr<AccessibleElement> cell;
  bool ready = thunar > 0 && waitFor([&] { return (files = windowOf(services.windows, thunar)).has_value(); }, 30) &&
               waitFor(
                   [&] {
                     for (auto& window : services.accessibility.windows(thunar))
                       if ((cell = findCell(window, "file3.txt", 1)) && cell->frame()) return true;
                     return false;
                   },
                   30);
  if (!ready) {
    std::printf("drop_resolver_bench: Thunar's details view didn't show the files (is thunar installed, and run "
                "through tests/desktop/file_manager_desktop.sh?)\n");
    printNotRun("Thunar's details view didn't show the files");
    status = 1;
  } else {
    Rect row = *cell->frame();
    state.row = {row.x + row.width / 2, row.y + row.height / 2};
    state.empty = {row.x + 10, files->y + files->height - 40};
    std::optional<WindowInfo> browser;
    if (chromium > 0 && waitFor([&] { return (browser = windowOf(services.windows, chromium)).has_value(); }, 30)) {
      state.browser = {browser->x + browser->width / 2, browser->y + browser->height / 2};
      state.hasBrowser = waitFor(
          [&] {
            auto resolved = state.resolver->resolve(state.browser);
            return resolved && resolved->target.kind() == Target::Kind::browserTab;
          },
          30);
    }
    // The row and the empty area must not lie under the browser's window.
    services.windows.activate(files->windowID);
    waitFor([&] { return windowOf(services.windows, thunar) && services.windows.windows().front().ownerPID == thunar; }, 5);
    auto onRow = state.resolver->resolve(state.row);
    if (!onRow || onRow->target.kind() != Target::Kind::file)
      std::printf("drop_resolver_bench: the row resolved to %s\n", onRow ? onRow->target.encode().dump().c_str() : "nothing");
    auto onFolder = state.resolver->resolve(state.empty);
    benchmark::RegisterBenchmark("window_list", windowList)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("resolve_file_row", resolveAt, &Fixture::row, Target::Kind::file)
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("resolve_folder", resolveAt, &Fixture::empty, Target::Kind::folder)
        ->Unit(benchmark::kMillisecond);
    if (state.hasBrowser)
      benchmark::RegisterBenchmark("resolve_browser", resolveAt, &Fixture::browser, Target::Kind::browserTab)
          ->Unit(benchmark::kMillisecond);
    if (onFolder) benchmark::RegisterBenchmark("tick_window", tick, onFolder->anchor)->Unit(benchmark::kMillisecond);
    if (onRow) benchmark::RegisterBenchmark("tick_element", tick, onRow->anchor)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("tick_hidden", tick, std::make_shared<HiddenAnchor>(Rect{0, 0, 64, 64}))
        ->Unit(benchmark::kMillisecond);
    benchmark::Initialize(&count, args.data());
    SummaryReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    printSummary(reporter);
  }
  for (pid_t pid : {thunar, chromium}) {
    if (pid <= 0) continue;
    ::kill(pid, SIGTERM);
    ::waitpid(pid, nullptr, 0);
  }
  std::filesystem::remove_all(folder);
  return status;
}
