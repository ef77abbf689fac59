// Cost of the processor's half of the ink renderer, which runs on the main thread for
// every frame of every goo view:
//   - bin/notch: the notch view (440 × 200 points: a body panel and three orbs),
//   - bin/fullscreen: a full-screen drag layer (1512 × 982 points: two tentacles of 28
//     capsules each and three panels with reveal, hole, ring and wobble),
//   - reference/notch: the CPU reference of the shader drawing the notch view at scale 1,
//     in pixels per second.
// Baselines, measured in the same run: copying the bytes binning produces (the
// primitives, ranges and indices a frame uploads) and filling the reference's image with
// memset. The summary prints each ratio and binning against its budget of 0.1 ms per
// frame. Google Benchmark's own flags apply. This program reports; it never fails a build.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "core/goo/shapes.h"
#include "core/ink/ink_pipeline.h"
#include "core/ink/ink_reference.h"
#include "figure_line.h"
#include "summary_reporter.h"

namespace zorvane {
namespace {

constexpr double kTime = 1700000000.25;
constexpr double kBudgetSeconds = 0.1e-3;
const Size kNotchView{440, 200};
const Size kFullView{1512, 982};

GooScene notchScene() {
  GooScene scene;
  scene.boxes.push_back({{146, 0, 148, 34}, 10, std::nullopt, std::nullopt, std::nullopt, 1.5});
  scene.blobs.push_back({{220, 10}, 30});
  scene.blobs.push_back({{170, 52}, 9});
  scene.blobs.push_back({{220, 58}, 9});
  scene.blobs.push_back({{270, 52}, 9});
  scene.blend = 14;
  scene.shadow = true;
  scene.gloss = true;
  scene.sheen = 0.35f;
  return scene;
}

GooScene fullScreenScene() {
  GooScene scene;
  scene.capsules = Shapes::tentacle({756, 0}, {300, 700}, 0.7, {0.3}, 0.1);
  auto second = Shapes::tentacle({756, 0}, {1200, 820}, 0.7, {0.6, 0.1}, 0);
  scene.capsules.insert(scene.capsules.end(), second.begin(), second.end());
  scene.boxes.push_back({{100, 200, 500, 300}, 24, InkBox::Reveal{{350, 350}, 260}, std::nullopt, std::nullopt, 3});
  scene.boxes.push_back({{900, 300, 450, 350}, 30, std::nullopt, 8.0, std::nullopt, 2});
  scene.boxes.push_back({{600, 600, 400, 250}, 20, InkBox::Reveal{{800, 725}, 300}, std::nullopt, 60.0, 4});
  scene.blend = 12;
  scene.shadow = true;
  scene.gloss = true;
  scene.sheen = 0.35f;
  return scene;
}

size_t binnedBytes(const InkPipeline::Binned& b) {
  return b.prims.size() * sizeof(InkPrim) + (b.ranges.size() + b.indices.size()) * sizeof(uint32_t);
}

void binScene(benchmark::State& state, GooScene scene, Size view) {
  InkPipeline::Binned binned;
  InkPipeline::bin(scene, view, 32, binned);
  for (auto _ : state) {
    InkPipeline::bin(scene, view, 32, binned);
    benchmark::DoNotOptimize(binned.indices.data());
    benchmark::ClobberMemory();
  }
  state.counters["tiles"] = double(binned.tilesX * binned.tilesY);
  state.counters["indices"] = double(binned.indices.size());
}

// Copies as many bytes as a frame's binning produces, from three buffers into three.
void copyScene(benchmark::State& state, GooScene scene, Size view) {
  InkPipeline::Binned source = InkPipeline::bin(scene, view, 32), target = source;
  for (auto _ : state) {
    std::memcpy(target.prims.data(), source.prims.data(), source.prims.size() * sizeof(InkPrim));
    std::memcpy(target.ranges.data(), source.ranges.data(), source.ranges.size() * sizeof(uint32_t));
    std::memcpy(target.indices.data(), source.indices.data(), source.indices.size() * sizeof(uint32_t));
    benchmark::DoNotOptimize(target.indices.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(binnedBytes(source)));
}

void referenceNotch(benchmark::State& state) {
  GooScene scene = notchScene();
  int64_t pixels = 0;
  for (auto _ : state) {
    InkImage image = InkReference::render(scene, kNotchView, 1, kTime);
    benchmark::DoNotOptimize(image.rgba.data());
    pixels += int64_t(image.width) * image.height;
  }
  state.SetItemsProcessed(pixels);
}

void fillNotch(benchmark::State& state) {
  std::vector<uint8_t> rgba(size_t(kNotchView.width) * size_t(kNotchView.height) * 4);
  for (auto _ : state) {
    std::memset(rgba.data(), 0x11, rgba.size());
    benchmark::DoNotOptimize(rgba.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(rgba.size() / 4));
}

// Keeps the seconds per iteration of every run besides printing it as usual.
void printSummary(const SummaryReporter& reporter) {
  auto find = [&](const std::string& name) { return reporter.of(name); };
  std::printf("\n");
  for (const char* which : {"notch", "fullscreen"}) {
    double bin = find((std::string("bin/") + which).c_str()), copy = find((std::string("copy/") + which).c_str());
    if (bin == 0) continue;
    std::printf("binning %s: %.2f µs = %.1f %% of the 0.1 ms budget (%s)", which, bin * 1e6,
                100 * bin / kBudgetSeconds, bin <= kBudgetSeconds ? "met" : "MISSED");
    if (copy > 0) std::printf("; %.1f × a copy of the same bytes (%.2f µs)", bin / copy, copy * 1e6);
    std::printf("\n");
    printFigure(std::string("ink binning, ") + which, bin * 1e6, "us", Goal::atMost(kBudgetSeconds * 1e6),
                copy > 0 ? copy * 1e6 : NAN, "a copy of the bytes binning makes");
  }
  double reference = find("reference/notch"), fill = find("fill/notch");
  if (reference > 0) {
    double pixels = kNotchView.width * kNotchView.height;
    std::printf("CPU reference, notch view at scale 1: %.2f Mpixel/s, %.1f ms a frame", pixels / reference / 1e6,
                reference * 1e3);
    if (fill > 0) std::printf("; %.0f × a memset of the same image (%.1f µs)", reference / fill, fill * 1e6);
    std::printf("\n");
    printFigure("ink CPU reference, notch frame", reference * 1e3, "ms", Goal::none(), fill > 0 ? fill * 1e3 : NAN,
                "a memset of the same image");
  }
}

}  // namespace
}  // namespace zorvane

int main(int argc, char** argv) {
  using namespace zorvane;
  benchmark::RegisterBenchmark("copy/notch", copyScene, notchScene(), kNotchView)->Unit(benchmark::kMicrosecond);
  benchmark::RegisterBenchmark("bin/notch", binScene, notchScene(), kNotchView)->Unit(benchmark::kMicrosecond);
  benchmark::RegisterBenchmark("copy/fullscreen", copyScene, fullScreenScene(), kFullView)
      ->Unit(benchmark::kMicrosecond);
  benchmark::RegisterBenchmark("bin/fullscreen", binScene, fullScreenScene(), kFullView)
      ->Unit(benchmark::kMicrosecond);
  benchmark::RegisterBenchmark("fill/notch", fillNotch)->Unit(benchmark::kMicrosecond);
  benchmark::RegisterBenchmark("reference/notch", referenceNotch)->Unit(benchmark::kMillisecond);
  return runWithSummary(argc, argv, printSummary);
}
