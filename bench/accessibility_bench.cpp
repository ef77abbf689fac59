// The accessibility layer against a real GTK window (gtk3-widget-factory, about 260
// elements): what a read of the whole tree, a hit test and a press cost.
//
//   tree_walk    every element of the window: role, title, description, help, value,
//                frame and children (goal <= 60 ms)
//   ui_tree      the same walk, reading frames only of the elements a tree listing
//                prints (those with a label or a value, and the actionable roles), as
//                the window tools' read_ui_tree does (goal <= 50 ms)
//   element_at   the element under the centre of a button (goal <= 5 ms)
//   press        the primary action of a toggle button
// Baseline, measured in the same run: one round trip to the application (the children
// of a button: one call, answered without the toolkit asking the X server anything,
// which a frame costs GTK). The summary gives each time, its ratio to the goal and to
// that round trip. Needs a display with an accessibility bus: run it under
// scripts/headless-desktop.sh. Google Benchmark's own flags apply. This program
// reports; it never fails a build.
#include <benchmark/benchmark.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <thread>

#include "platform/linux/atspi_accessibility.h"
#include "figure_line.h"
#include "summary_reporter.h"

extern char** environ;

namespace {

using namespace zorvane;
using Clock = std::chrono::steady_clock;

struct Fixture {
  AtspiAccessibility accessibility;
  pid_t pid = -1;
  std::shared_ptr<AccessibleElement> window;
  std::shared_ptr<AccessibleElement> button, toggle;
};
Fixture* fixture = nullptr;

const std::set<std::string> kActionable = {
    "AXButton", "AXTextField", "AXTextArea", "AXLink", "AXCheckBox", "AXRadioButton",
    "AXPopUpButton", "AXMenuItem", "AXMenuButton", "AXComboBox", "AXTab", "AXSlider",
    "AXSearchField", "AXCell", "AXRow", "AXDisclosureTriangle", "AXIncrementor"};

// `allFrames`: read every element's frame, else only those of printed elements.
int walk(AccessibleElement& element, bool allFrames) {
  std::string role = element.role();
  std::string title = element.title(), description = element.description(), help = element.help();
  std::optional<std::string> value = element.value();
  bool printed = !title.empty() || !description.empty() || !help.empty() || (value && !value->empty()) ||
                 kActionable.count(role);
  if (allFrames || printed) benchmark::DoNotOptimize(element.frame());
  int count = 1;
  if (auto children = element.children())
    for (auto& child : *children) count += walk(*child, allFrames);
  return count;
}

std::shared_ptr<AccessibleElement> find(AccessibleElement& element, const std::string& role, const std::string& title) {
  auto children = element.children();
  if (!children) return nullptr;
  for (auto& child : *children) {
    if (child->role() == role && child->title() == title) return child;
    if (auto found = find(*child, role, title)) return found;
  }
  return nullptr;
}

void roundTrip(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(fixture->button->children());
}

void treeWalk(benchmark::State& state, bool allFrames) {
  int elements = 0;
  for (auto _ : state) {
    // As a caller does: the windows afresh, then the whole tree.
    auto windows = fixture->accessibility.windows(fixture->pid);
    elements = 0;
    for (auto& window : windows) elements += walk(*window, allFrames);
  }
  state.counters["elements"] = elements;
}

void elementAt(benchmark::State& state) {
  auto frame = fixture->button->frame().value_or(Rect{});
  Point centre{frame.x + frame.width / 2, frame.y + frame.height / 2};
  for (auto _ : state) benchmark::DoNotOptimize(fixture->accessibility.elementAt(fixture->pid, centre));
}

void press(benchmark::State& state) {
  for (auto _ : state) {
    if (fixture->toggle->press() != 0) state.SkipWithError("press failed");
  }
}

// Milliseconds per operation.
void printSummary(const SummaryReporter& reporter) {
  auto time = [&](const char* name) { return reporter.of(name) * 1e3; };
  double baseline = time("round_trip");
  std::printf("\nper operation; baseline = one round trip to the application (%.3f ms)\n", baseline);
  std::printf("%-12s %10s %8s %10s %12s  %s\n", "operation", "ms", "goal", "/ goal", "/ baseline", "");
  struct Row {
    const char* name;
    double goal;  // 0: none
  };
  const Row rows[] = {Row{"tree_walk", 60}, Row{"ui_tree", 50}, Row{"element_at", 5}, Row{"press", 0}};
  for (Row row : rows) {
    double ms = time(row.name);
    if (ms == 0) continue;
    std::string goal = row.goal > 0 ? std::to_string(int(row.goal)) : "-";
    std::string ofGoal = row.goal > 0 ? std::to_string(ms / row.goal).substr(0, 5) : "-";
    const char* verdict = row.goal == 0 ? "" : ms <= row.goal ? "met" : "MISSED";
    std::printf("%-12s %10.3f %8s %10s %12.1f  %s\n", row.name, ms, goal.c_str(), ofGoal.c_str(),
                baseline > 0 ? ms / baseline : 0.0, verdict);
  }
  for (Row row : rows) {
    double ms = time(row.name);
    printFigure(std::string("accessibility ") + row.name + ", gtk3-widget-factory", ms > 0 ? ms : NAN, "ms",
                row.goal > 0 ? Goal::atMost(row.goal) : Goal::none(), baseline > 0 ? baseline : NAN,
                "one round trip to the application");
  }
}

pid_t startFactory(const std::string& home) {
  std::string homeVariable = "HOME=" + home;
  std::vector<char*> environment;
  for (char** entry = environ; *entry; ++entry)
    if (std::string(*entry).rfind("HOME=", 0) != 0) environment.push_back(*entry);
  environment.push_back(homeVariable.data());
  environment.push_back(nullptr);
  char program[] = "gtk3-widget-factory";
  char* argv[] = {program, nullptr};
  pid_t pid = -1;
  if (posix_spawnp(&pid, program, nullptr, nullptr, argv, environment.data()) != 0) return -1;
  return pid;
}

}  // namespace

int main(int argc, char** argv) {
  if (!std::getenv("DISPLAY")) {
    std::printf("accessibility_bench needs a display: run it under scripts/headless-desktop.sh\n");
    printNotRun("no display (run under scripts/headless-desktop.sh)");
    return 0;
  }
  std::string home = std::filesystem::temp_directory_path() / ("zorvane-a11y-bench-" + std::to_string(getpid()));
  std::filesystem::create_directories(home);
  Fixture state;
  fixture = &state;
  state.pid = startFactory(home);
  if (state.pid < 0) {
    std::printf("accessibility_bench: gtk3-widget-factory is not installed (Debian: gtk-3-examples)\n");
    printNotRun("gtk3-widget-factory is not installed (Debian: gtk-3-examples)");
    return 0;
  }
  // The window appears on the accessibility bus a moment after the start.
  for (auto deadline = Clock::now() + std::chrono::seconds(30); !state.window && Clock::now() < deadline;) {
    auto windows = state.accessibility.windows(state.pid);
    if (!windows.empty()) state.window = windows.front();
    else std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  if (state.window) {
    state.button = find(*state.window, "AXButton", "Sans Regular");
    state.toggle = find(*state.window, "AXCheckBox", "togglebutton");
  }
  int status = 0;
  if (!state.window || !state.button || !state.toggle) {
    std::printf("accessibility_bench: the widget factory's window didn't show up on the accessibility bus\n");
    printNotRun("the widget factory's window didn't show up on the accessibility bus");
    status = 1;
  } else {
    benchmark::RegisterBenchmark("round_trip", roundTrip)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("tree_walk", treeWalk, true)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("ui_tree", treeWalk, false)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("element_at", elementAt)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("press", press)->Unit(benchmark::kMillisecond);
    status = runWithSummary(argc, argv, printSummary);
  }
  ::kill(state.pid, SIGTERM);
  ::waitpid(state.pid, nullptr, 0);
  std::filesystem::remove_all(home);
  return status;
}
