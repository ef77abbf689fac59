#include "ui/ink_frame_loop.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>

#include "core/base/log.h"

namespace zorvane {

static double steadyMilliseconds() {
  using namespace std::chrono;
  return duration<double, std::milli>(steady_clock::now().time_since_epoch()).count();
}

// Counts how many of the binned arrays had to grow, by their capacities before and after.
static int grownBuffers(const InkPipeline::Binned& binned, size_t prims, size_t ranges, size_t indices) {
  return int(binned.prims.capacity() != prims) + int(binned.ranges.capacity() != ranges) +
         int(binned.indices.capacity() != indices);
}

InkFrameLoop::TickOutcome InkFrameLoop::tick(double now, Size viewSize, double scale, bool hasPipeline,
                                             InkFrame& frame) {
  ++counters_.ticks;
  if (isPaused) return TickOutcome::paused;

  double tickStart = 0;
  if (perfEnabled) {
    tickStart = steadyMilliseconds();
    if (perfSince_ < 0) perfSince_ = now;
    if (lastDraw_ >= 0) gapMax_ = std::max(gapMax_, (now - lastDraw_) * 1000);
    lastDraw_ = now;
  }

  GooScene scene = this->scene ? this->scene(now, viewSize) : GooScene{};

  if (inFlight_) {
    ++counters_.skipped;
    ++skipped_;
    return TickOutcome::skipped;
  }
  bool empty = scene.isEmpty();
  if (empty && wasEmpty_) return TickOutcome::idle;
  wasEmpty_ = empty;
  if (!hasPipeline) return TickOutcome::noPipeline;

  frame.size = viewSize;
  frame.scale = scale;
  double tile = tileSize > 0 ? tileSize : InkPipeline::tile();
  if (empty) {
    frame.binned.prims.clear();
    frame.binned.ranges.clear();
    frame.binned.indices.clear();
    frame.dirty = Rect{};
  } else {
    size_t prims = frame.binned.prims.capacity(), ranges = frame.binned.ranges.capacity(),
           indices = frame.binned.indices.capacity();
    InkPipeline::bin(scene, viewSize, tile, frame.binned);
    counters_.allocations += grownBuffers(frame.binned, prims, ranges, indices);
    Rect dirty;
    if (!intersect(scene.bounds().grownBy(39), Rect{0, 0, viewSize.width, viewSize.height}, dirty)) dirty = Rect{};
    frame.dirty = dirty;
  }
  frame.uniforms = InkPipeline::uniforms(scene, viewSize, scale, now, frame.binned, tile);

  if (keepsScene) {
    lastScene = std::move(scene);
    lastTime = now;
  }
  inFlight_ = true;
  ++counters_.handOffs;
  if (perfEnabled) {
    double cost = steadyMilliseconds() - tickStart;
    cpuSum_ += cost;
    cpuMax_ = std::max(cpuMax_, cost);
    perfLabel_ = viewSize;
  }
  return TickOutcome::handedOff;
}

void InkFrameLoop::frameFinished() { inFlight_ = false; }

void InkFrameLoop::recordPerf(double gpuMilliseconds, double now) {
  if (!perfEnabled) return;
  if (perfSince_ < 0) perfSince_ = now;
  perfSum_ += gpuMilliseconds;
  perfMax_ = std::max(perfMax_, gpuMilliseconds);
  ++perfN_;
  if (now - perfSince_ <= 2 || perfN_ < 1) return;

  char line[256];
  std::snprintf(line, sizeof line,
                "perf %dx%d gpu avg %.2fms max %.2fms \xC2\xB7 main thread avg %.2fms max %.2fms \xC2\xB7 "
                "worst gap %.1fms \xC2\xB7 %d frames, %d skipped",
                int(perfLabel_.width), int(perfLabel_.height), perfSum_ / perfN_, perfMax_, cpuSum_ / perfN_, cpuMax_,
                gapMax_, perfN_, skipped_);
  if (logLine)
    logLine(line);
  else
    Log::info(line);
  resetPerf(now);
}

void InkFrameLoop::resetPerf(double now) {
  perfSum_ = perfMax_ = cpuSum_ = cpuMax_ = gapMax_ = 0;
  perfN_ = skipped_ = 0;
  perfSince_ = now;
}

std::optional<InkDeviceRect> InkFrameLoop::deviceScissor(const Rect& points, double scale, int pixelWidth,
                                                         int pixelHeight) {
  if (points.isEmpty() || pixelWidth < 1 || pixelHeight < 1) return std::nullopt;
  // Held to the target before any conversion to int, so no scene's numbers overflow.
  auto within = [](double value, int limit) { return std::isnan(value) ? 0.0 : std::clamp(value, 0.0, double(limit)); };
  int x = int(within(points.x * scale, pixelWidth));
  int y = int(within(points.y * scale, pixelHeight));
  if (x >= pixelWidth || y >= pixelHeight) return std::nullopt;
  int width = std::max(int(within(std::ceil(points.width * scale), pixelWidth - x)), 1);
  int height = std::max(int(within(std::ceil(points.height * scale), pixelHeight - y)), 1);
  return InkDeviceRect{x, y, width, height};
}

// The parts of `rect` outside `hole`: below, above, left and right of their overlap.
static void subtractInto(const Rect& rect, const Rect& hole, std::vector<Rect>& out) {
  Rect i;
  if (!intersect(rect, hole, i) || i.isEmpty()) {
    out.push_back(rect);
    return;
  }
  auto add = [&](Rect r) {
    if (!r.isEmpty()) out.push_back(r);
  };
  add({rect.minX(), rect.minY(), rect.width, i.minY() - rect.minY()});
  add({rect.minX(), i.maxY(), rect.width, rect.maxY() - i.maxY()});
  add({rect.minX(), i.minY(), i.minX() - rect.minX(), i.height});
  add({i.maxX(), i.minY(), rect.maxX() - i.maxX(), i.height});
}

std::vector<Rect> InkFrameLoop::disjointRects(std::span<const Rect> rects) {
  std::vector<Rect> result;
  for (const Rect& rect : rects) {
    if (rect.isEmpty()) continue;
    std::vector<Rect> pieces{rect}, next;
    for (const Rect& earlier : result) {
      next.clear();
      for (const Rect& piece : pieces) subtractInto(piece, earlier, next);
      pieces.swap(next);
    }
    result.insert(result.end(), pieces.begin(), pieces.end());
  }
  return result;
}

}  // namespace zorvane
