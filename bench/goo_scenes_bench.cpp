// What the main thread spends building one frame's goo scene, before the scene is
// binned (InkPipeline::bin) and handed to the GPU, for the three busiest views:
//
//   scene/notch       the notch with the pointer near (the fringe reaches for it) and one
//                     piece working: goal 0.3 ms a frame;
//   scene/tentacle    the drag layer growing an arm from a knot toward a far cursor that
//                     keeps moving, 64 capsules a frame: goal 0.5 ms;
//   scene/flood       a window piece's possession look (an 800 × 600 window) in the
//                     flood, 0.05 to 0.5 s after the bond, while its strands lunge and
//                     hold: goal 0.5 ms.
//
// Each is timed in CPU time of the thread that runs it, one frame an iteration, the
// desktop in memory (platform/fake) and the time from a fake clock, so the figures are
// the controllers' own. Beside each, bin/<name> bins the very scenes that view produced
// (recorded once, binned in turn into reused buffers), as the frame loop does next: the
// baseline the summary sets the scene's cost against. Google Benchmark's own flags apply.
// This program reports; it never fails a build.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <map>
#include <memory>
#include <numbers>
#include <string>
#include <vector>

#include "app/notch/drag_layer.h"
#include "app/notch/notch_controller.h"
#include "app/pieces/possession_look.h"
#include "core/base/run_loop.h"
#include "core/goo/ink_tokens.h"
#include "core/ink/ink_pipeline.h"
#include "platform/fake/fake_surfaces.h"
#include "figure_line.h"

namespace zorvane {
namespace {

constexpr uint64_t kSeed = 20260601;

// The notch with the pointer 40 points below the band's middle and one working piece:
// the fringe is drawn and the body runs at its active rate.
class NotchFrames {
 public:
  NotchFrames() {
    notch_ = NotchController::make(surfaces_, queue_, *clock_, surfaces_.screenList.front(), kSeed);
    notch_->livePieces = 1;
    notch_->activity = [] { return NotchActivity{1, 1, 0}; };
    Rect band = notch_->notchRect();
    surfaces_.pointerAt = {band.x + band.width / 2 + 20, band.maxY() + 40};
    notch_->pollPointer();
    view_ = notch_->panel().frame().size();
    // Two seconds for the pull toward the pointer to settle.
    for (int i = 0; i < 120; ++i) next();
  }
  GooScene next() {
    clock_->advance(1.0 / NotchController::kActiveRate);
    return notch_->scene(clock_->wallSeconds(), view_);
  }
  Size view() const { return view_; }

 private:
  std::shared_ptr<FakeClock> clock_ = std::make_shared<FakeClock>();
  RunLoop queue_{clock_};
  FakeSurfaces surfaces_;
  std::shared_ptr<NotchController> notch_;
  Size view_;
};

// An arm grown from a knot at the right of the screen toward a cursor near the bottom
// left that circles, so the rope never comes to rest.
class TentacleFrames {
 public:
  static constexpr size_t kCapsules = 64;

  TentacleFrames() {
    Rect screen = surfaces_.screenList.front().frame;
    layer_ = DragLayer::make(surfaces_, queue_, *clock_, screen);
    layer_->begin(DragLayer::Mode::tentacle, {screen.width - 400, 300});
    view_ = screen.size();
    // Half a second for the arm to reach out, then on until it has all its capsules.
    for (int i = 0; i < 60; ++i) next();
    for (int i = 0; i < 600 && next().capsules.size() != kCapsules; ++i) {
    }
  }
  GooScene next() {
    clock_->advance(1.0 / DragLayer::kFrameRate);
    double a = 2 * std::numbers::pi * double(frame_++ % 240) / 240;
    layer_->cursor = {300 + 60 * std::cos(a), 900 + 60 * std::sin(a)};
    return layer_->scene(clock_->wallSeconds());
  }
  Size view() const { return view_; }

 private:
  std::shared_ptr<FakeClock> clock_ = std::make_shared<FakeClock>();
  RunLoop queue_{clock_};
  FakeSurfaces surfaces_;
  std::shared_ptr<DragLayer> layer_;
  Size view_;
  int frame_ = 0;
};

// A window that stays where it is: the look reads only its frame.
class StillWindowAnchor final : public Anchor {
 public:
  explicit StillWindowAnchor(Rect frame) : Anchor(4242, frame, true) {}
  bool isIcon() const override { return false; }
  bool tick() override { return true; }
  std::string_view kindName() const override { return "StillWindowAnchor"; }
};

// The flood over an 800 × 600 window at 120 frames a second. Frames before 0.05 s are
// drawn by `restart`, outside the timing; `next` draws the ones up to 0.5 s, and
// `finished` says when a new bond is needed.
class FloodFrames {
 public:
  static constexpr double kFirst = 0.05, kLast = 0.5, kStep = 1.0 / 120;

  FloodFrames() : anchor_(std::make_shared<StillWindowAnchor>(Rect{200, 150, 800, 600})) {
    view_ = {anchor_->frame().width + 2 * PossessionLook::kMargin,
             anchor_->frame().height + 2 * PossessionLook::kMargin};
    restart();
  }
  void restart() {
    bond_ += 10;
    look_ = std::make_unique<PossessionLook>(anchor_, Point{450, 400}, bond_, kSeed);
    e_ = 0;
    while (e_ < kFirst) step();
  }
  GooScene next() { return step(); }
  bool finished() const { return e_ > kLast; }
  Size view() const { return view_; }
  // Strands that are drawn: lunging, holding or recoiling.
  size_t liveStrands() const {
    size_t live = 0;
    for (const Strand& strand : look_->strands())
      if (!strand.dead && strand.state != Strand::State::waiting) ++live;
    return live;
  }

 private:
  GooScene step() {
    GooScene scene = look_->scene(bond_ + e_ * Ink::Timing::slowMotion());
    e_ += kStep;
    return scene;
  }

  std::shared_ptr<Anchor> anchor_;
  std::unique_ptr<PossessionLook> look_;
  Size view_;
  double bond_ = 1780315200.0;
  double e_ = 0;
};

void notchScene(benchmark::State& state) {
  NotchFrames frames;
  size_t capsules = 0;
  for (auto _ : state) {
    GooScene scene = frames.next();
    capsules = scene.capsules.size();
    benchmark::DoNotOptimize(scene.capsules.data());
  }
  state.counters["capsules"] = double(capsules);
}

void tentacleScene(benchmark::State& state) {
  TentacleFrames frames;
  size_t capsules = 0;
  for (auto _ : state) {
    GooScene scene = frames.next();
    capsules = scene.capsules.size();
    benchmark::DoNotOptimize(scene.capsules.data());
  }
  state.counters["capsules"] = double(capsules);
}

void floodScene(benchmark::State& state) {
  FloodFrames frames;
  size_t capsules = 0, strands = 0;
  for (auto _ : state) {
    if (frames.finished()) {
      state.PauseTiming();
      frames.restart();
      state.ResumeTiming();
    }
    GooScene scene = frames.next();
    capsules = std::max(capsules, scene.capsules.size());
    strands = std::max(strands, frames.liveStrands());
    benchmark::DoNotOptimize(scene.capsules.data());
  }
  state.counters["capsules_max"] = double(capsules);
  state.counters["strands"] = double(strands);
}

// The scenes a view draws over `count` frames, as the bin benchmarks replay them.
template <typename Frames>
std::vector<GooScene> record(Frames& frames, int count) {
  std::vector<GooScene> scenes;
  for (int i = 0; i < count; ++i) scenes.push_back(frames.next());
  return scenes;
}

void binScenes(benchmark::State& state, std::vector<GooScene> scenes, Size view) {
  double tile = InkPipeline::tile();
  InkPipeline::Binned binned;
  size_t i = 0;
  for (auto _ : state) {
    InkPipeline::bin(scenes[i], view, tile, binned);
    i = (i + 1) % scenes.size();
    benchmark::DoNotOptimize(binned.indices.data());
    benchmark::ClobberMemory();
  }
  state.counters["tiles"] = double(binned.tilesX * binned.tilesY);
}

// Prints Google Benchmark's table (in colour only on a terminal) and keeps the CPU
// seconds per iteration of each run.
class CpuTimeReporter : public benchmark::ConsoleReporter {
 public:
  CpuTimeReporter() : ConsoleReporter(::isatty(STDOUT_FILENO) ? OO_Defaults : OO_Tabular) {}
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.error_occurred || run.run_type != Run::RT_Iteration || run.iterations == 0) continue;
      seconds_[run.benchmark_name()] = run.cpu_accumulated_time / double(run.iterations);
    }
  }
  // CPU seconds per iteration; 0 for a benchmark that didn't run.
  double of(const std::string& name) const {
    auto found = seconds_.find(name);
    return found == seconds_.end() ? 0.0 : found->second;
  }

 private:
  std::map<std::string, double> seconds_;
};

struct SceneGoal {
  const char* name;
  const char* what;
  double milliseconds;
};

constexpr SceneGoal kGoals[] = {
    {"notch", "notch, pointer near, a piece working", 0.3},
    {"tentacle", "drag layer, tentacle of 64 capsules", 0.5},
    {"flood", "possession look, 800x600 window flood", 0.5},
};

void printSummary(const CpuTimeReporter& reporter) {
  std::printf("\nmain-thread CPU time per frame (scene: building it; binning: InkPipeline::bin of it)\n");
  std::printf("  %-40s %10s %8s %12s %10s\n", "scene", "cost ms", "goal ms", "binning ms", "cost/goal");
  for (const SceneGoal& goal : kGoals) {
    double scene = reporter.of(std::string("scene/") + goal.name) * 1e3;
    double bin = reporter.of(std::string("bin/") + goal.name) * 1e3;
    if (scene == 0) continue;
    std::printf("  %-40s %10.4f %8.1f %12.4f %10.3f  %s\n", goal.what, scene, goal.milliseconds, bin,
                scene / goal.milliseconds, scene <= goal.milliseconds ? "met" : "MISSED");
  }
  for (const SceneGoal& goal : kGoals) {
    double scene = reporter.of(std::string("scene/") + goal.name) * 1e3;
    double bin = reporter.of(std::string("bin/") + goal.name) * 1e3;
    if (scene == 0) continue;
    printFigure(std::string("goo scene ") + goal.what, scene, "ms", Goal::atMost(goal.milliseconds),
                bin > 0 ? bin : NAN, "InkPipeline::bin of the same scenes");
  }
}

}  // namespace
}  // namespace zorvane

int main(int argc, char** argv) {
  using namespace zorvane;
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;

  NotchFrames notch;
  TentacleFrames tentacle;
  FloodFrames flood;
  Size notchView = notch.view(), tentacleView = tentacle.view(), floodView = flood.view();
  std::vector<GooScene> notchScenes = record(notch, 120), tentacleScenes = record(tentacle, 120);
  std::vector<GooScene> floodScenes;
  while (!flood.finished()) floodScenes.push_back(flood.next());

  benchmark::RegisterBenchmark("scene/notch", notchScene)->Unit(benchmark::kMicrosecond);
  benchmark::RegisterBenchmark("bin/notch", binScenes, notchScenes, notchView)->Unit(benchmark::kMicrosecond);
  benchmark::RegisterBenchmark("scene/tentacle", tentacleScene)->Unit(benchmark::kMicrosecond);
  benchmark::RegisterBenchmark("bin/tentacle", binScenes, tentacleScenes, tentacleView)
      ->Unit(benchmark::kMicrosecond);
  benchmark::RegisterBenchmark("scene/flood", floodScene)->Unit(benchmark::kMicrosecond);
  benchmark::RegisterBenchmark("bin/flood", binScenes, floodScenes, floodView)->Unit(benchmark::kMicrosecond);

  CpuTimeReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  printSummary(reporter);
  return 0;
}
