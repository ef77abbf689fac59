// GPU ink renderer on this machine's OpenGL (llvmpipe under Xvfb here), and what an
// idle InkView costs.
//
//   gpu/<size>/binned     one frame of a busy scene (3 tentacles, 14 blobs, 3 boxes:
//                         101 primitives) drawn offscreen at scale 1 and finished with
//                         glFinish, tiles of 32 points;
//   gpu/<size>/unbinned   the same frame with one tile over the whole view, so that every
//                         pixel evaluates every primitive: the baseline binning is
//                         measured against;
//   view/idle             one tick of an InkView whose scene is empty (after its one
//                         clearing frame): the callback and the idle check;
//   view/busy             one tick of the same view with the busy scene: binning and the
//                         hand-off, the baseline of the idle tick.
// Sizes are 440x200 (a panel) and 1512x982 (a full screen).
//
// The summary prints binned against unbinned as a ratio, and for the idle view the GL
// draws, buffer (re)allocations and heap allocations counted over its ticks, which
// should all be 0. Needs a display (run under scripts/headless-desktop.sh); without one
// it says so and exits 0. This program reports; it never fails.
#include <benchmark/benchmark.h>

#include <QGuiApplication>

#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <new>
#include <string>

#include "core/goo/shapes.h"
#include "ui/ink_gpu_pipeline.h"
#include "ui/ink_offscreen_renderer.h"
#include "ui/ink_view.h"
#include "../figure_line.h"
#include "../summary_reporter.h"

// Every heap allocation of the process, so the idle ticks can be shown to make none.
static std::atomic<uint64_t> heapAllocations{0};

void* operator new(std::size_t size) {
  heapAllocations.fetch_add(1, std::memory_order_relaxed);
  if (void* p = std::malloc(size ? size : 1)) return p;
  throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }

namespace zorvane {
namespace {

constexpr double kNow = 1700000123.25;

// A scene that fills `view` the same way at any size.
GooScene busyScene(Size view) {
  GooScene scene;
  auto at = [&](double u, double v) { return Point{u * view.width, v * view.height}; };
  for (int i = 0; i < 3; ++i) {
    double v = 0.25 + 0.25 * i;
    auto strand = Shapes::tentacle(at(0.08, v), at(0.9, v - 0.1), 0.25 + i, {0.3}, 0.1);
    scene.capsules.insert(scene.capsules.end(), strand.begin(), strand.end());
  }
  for (int i = 0; i < 14; ++i) {
    double u = 0.05 + 0.065 * i, v = 0.5 + 0.35 * std::sin(i * 1.7);
    scene.blobs.push_back({at(u, v), 8 + 3.0 * (i % 5)});
  }
  double w = view.width, h = view.height;
  scene.boxes.push_back({{0.05 * w, 0.05 * h, 0.3 * w, 0.25 * h}, 14, InkBox::Reveal{at(0.1, 0.1), 0.25 * w},
                         std::nullopt, std::nullopt, 3});
  scene.boxes.push_back({{0.6 * w, 0.6 * h, 0.35 * w, 0.35 * h}, 18, std::nullopt, 6.0, std::nullopt, 2});
  scene.boxes.push_back({{0.4 * w, 0.7 * h, 0.15 * w, 0.25 * h}, 10, std::nullopt, std::nullopt, std::nullopt, 4});
  scene.blend = 10;
  scene.shadow = true;
  scene.gloss = true;
  scene.sheen = 0.3f;
  return scene;
}

InkOffscreenRenderer* renderer = nullptr;

void drawFrame(benchmark::State& state, Size view, bool binned) {
  GooScene scene = busyScene(view);
  InkFrame frame;
  frame.size = view;
  frame.scale = 1;
  double tile = binned ? 32 : std::max(view.width, view.height);
  InkPipeline::bin(scene, view, tile, frame.binned);
  frame.dirty = Rect{0, 0, view.width, view.height};
  frame.uniforms = InkPipeline::uniforms(scene, view, 1, kNow, frame.binned, tile);
  renderer->draw(frame);  // warm: the first frame allocates the textures
  renderer->finish();
  for (auto _ : state) {
    renderer->draw(frame);
    renderer->finish();
  }
  state.counters["tile entries"] = double(frame.binned.indices.size());
}

struct IdleCounts {
  uint64_t ticks = 0, draws = 0, allocations = 0, heap = 0;
} idleCounts;

void tickView(benchmark::State& state, bool busy) {
  GooScene shapes = busyScene({440, 200});
  InkView view(120, [&](double, Size) { return busy ? shapes : GooScene{}; });
  view.setSize(QSizeF(440, 200));
  // Without a window nothing renders: each handed-off frame is dropped at once. The
  // first ticks hand off (and, when idle, clear); later ones show the steady state.
  for (int i = 0; i < 3; ++i) view.frameTick();
  InkView::Stats before = view.stats();
  uint64_t heapBefore = heapAllocations.load();
  for (auto _ : state) view.frameTick();
  InkView::Stats after = view.stats();
  if (!busy)
    idleCounts = {after.ticks - before.ticks, after.draws - before.draws, after.allocations - before.allocations,
                  heapAllocations.load() - heapBefore};
  state.counters["hand-offs"] = double(after.handOffs - before.handOffs);
}

void printSummary(const SummaryReporter& reporter) {
  auto find = [&](const std::string& name) { return reporter.of(name); };
  std::printf("\n%s\n", renderer->description().c_str());
  for (const char* size : {"440x200", "1512x982"}) {
    double binned = find(std::string("gpu/") + size + "/binned"), unbinned = find(std::string("gpu/") + size + "/unbinned");
    if (binned == 0 || unbinned == 0) continue;
    std::printf("GPU frame %s: binned %.2f ms, unbinned %.2f ms: binning is %.1f x faster\n", size, binned * 1e3,
                unbinned * 1e3, unbinned / binned);
    printFigure(std::string("ink GPU frame ") + size + ", binned", binned * 1e3, "ms", Goal::none(), unbinned * 1e3,
                "the same frame unbinned");
  }
  double idle = find("view/idle"), busy = find("view/busy");
  if (idle > 0 && busy > 0) {
    std::printf("idle InkView tick: %.3f us, %.4f of a busy tick (%.2f us)\n", idle * 1e6, idle / busy, busy * 1e6);
    printFigure("ink idle InkView tick", idle * 1e6, "us", Goal::none(), busy * 1e6, "a busy tick");
  }
  if (idleCounts.ticks > 0)
    std::printf("idle InkView over %llu ticks: %llu GL draws, %llu buffer (re)allocations, %llu heap allocations\n",
                (unsigned long long)idleCounts.ticks, (unsigned long long)idleCounts.draws,
                (unsigned long long)idleCounts.allocations, (unsigned long long)idleCounts.heap);
  if (idleCounts.ticks > 0) {
    printFigure("ink idle InkView, GL draws", double(idleCounts.draws), "count", Goal::atMost(0));
    printFigure("ink idle InkView, buffer (re)allocations", double(idleCounts.allocations), "count", Goal::atMost(0));
    printFigure("ink idle InkView, heap allocations", double(idleCounts.heap), "count", Goal::atMost(0));
  }
}

}  // namespace
}  // namespace zorvane

int main(int argc, char** argv) {
  using namespace zorvane;
  if (!std::getenv("DISPLAY") && !std::getenv("WAYLAND_DISPLAY")) {
    std::printf("ink_gpu_bench: needs a display (DISPLAY is not set); run it under scripts/headless-desktop.sh\n");
    printNotRun("no display (run under scripts/headless-desktop.sh)");
    return 0;
  }
  if (!std::getenv("QT_QPA_PLATFORM")) setenv("QT_QPA_PLATFORM", "offscreen", 1);
  QGuiApplication app(argc, argv);
  auto created = InkOffscreenRenderer::create();
  if (!created) {
    std::printf("ink_gpu_bench: %s\n", created.error().c_str());
    printNotRun(created.error());
    return 0;
  }
  renderer = created->get();

  for (Size view : {Size{440, 200}, Size{1512, 982}}) {
    std::string size = std::to_string(int(view.width)) + "x" + std::to_string(int(view.height));
    benchmark::RegisterBenchmark(("gpu/" + size + "/binned").c_str(), drawFrame, view, true)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
    benchmark::RegisterBenchmark(("gpu/" + size + "/unbinned").c_str(), drawFrame, view, false)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime()
        ->MinTime(view.width > 1000 ? 0.1 : 0.5);
  }
  benchmark::RegisterBenchmark("view/idle", tickView, false)->Unit(benchmark::kMicrosecond);
  benchmark::RegisterBenchmark("view/busy", tickView, true)->Unit(benchmark::kMicrosecond);
  return runWithSummary(argc, argv, printSummary);
}
