// InkFrameLoop: the decisions an ink view makes on each display tick, free of any
// toolkit, so they can be driven by hand in tests and benchmarks.
//
// On each tick the scene callback is asked for the frame at that moment, whether or not
// it is drawn, so the simulation behind it always advances. Then:
//   - paused: nothing happens at all (the callback isn't called either);
//   - a frame is still in flight: the tick counts as skipped;
//   - the scene is empty and the last frame handed off was empty too: idle, nothing to do;
//   - no pipeline: nothing is drawn;
//   - otherwise the scene is binned into the caller's InkFrame and handed off; the
//     loop stays "in flight" until frameFinished().
// So after shapes, one empty frame is still handed off (it clears them); after that an
// empty view costs a callback and a few comparisons per tick: no binning, no
// allocation, no hand-off.
//
// With perf logging on, the loop also keeps the measurements of the `--perf` line and
// logs one line per period of more than two seconds.
//
// Lives on the main thread; nothing here is thread-safe.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "core/ink/goo_scene.h"
#include "core/ink/ink_pipeline.h"

namespace zorvane {

// A rectangle in device pixels of a render target, top-left origin.
struct InkDeviceRect {
  int x = 0, y = 0, width = 0, height = 0;
  friend bool operator==(const InkDeviceRect&, const InkDeviceRect&) = default;
};

// What a tick hands to the renderer. Reused from frame to frame so that binning keeps
// its buffers.
struct InkFrame {
  InkPipeline::Binned binned;
  InkUniforms uniforms{};
  Rect dirty;          // points in the view; empty when there is nothing to draw
  Size size;           // view size in points
  double scale = 2;    // device pixels per point
  bool hasShapes() const { return !binned.prims.empty() && !binned.indices.empty() && !dirty.isEmpty(); }
};

class InkFrameLoop {
 public:
  using SceneCallback = std::function<GooScene(double time, Size viewSize)>;

  enum class TickOutcome { paused, skipped, idle, noPipeline, handedOff };

  struct Counters {
    uint64_t ticks = 0;        // every tick, paused ones included
    uint64_t handOffs = 0;     // frames given to the renderer
    uint64_t skipped = 0;      // ticks that found a frame in flight
    uint64_t allocations = 0;  // times binning had to grow one of its buffers
  };

  SceneCallback scene;
  bool isPaused = false;
  // Perf logging (the `--perf` command-line flag); lines go to `logLine`, by default
  // Log::info.
  bool perfEnabled = false;
  std::function<void(const std::string&)> logLine;
  // Tile size in points for binning; 0 means InkPipeline::tile().
  double tileSize = 0;
  // Keep a copy of the scene of each frame handed off (lastScene, lastTime), for a
  // caller that writes out what is on screen.
  bool keepsScene = false;
  GooScene lastScene;
  double lastTime = 0;

  // One display tick at `now` (seconds since 1970) for a view of `viewSize` points shown
  // at `scale` device pixels per point. `hasPipeline` is false once the renderer knows
  // it can't draw. On `handedOff`, `frame` holds what to draw.
  TickOutcome tick(double now, Size viewSize, double scale, bool hasPipeline, InkFrame& frame);

  // The renderer is done with the frame handed off last (drawn, or dropped).
  void frameFinished();
  bool isInFlight() const { return inFlight_; }
  bool wasEmpty() const { return wasEmpty_; }

  // One rendered frame's GPU time, reported at `now`. Logs and resets when more than two
  // seconds have passed since the last line.
  void recordPerf(double gpuMilliseconds, double now);

  const Counters& counters() const { return counters_; }

  // The scissor of a dirty rectangle (points) in a view of `pixelWidth` × `pixelHeight`
  // device pixels: origin × scale truncated and at least 0, size × scale rounded up,
  // limited to the rest of the view and at least 1. Nothing for an empty rectangle.
  static std::optional<InkDeviceRect> deviceScissor(const Rect& points, double scale, int pixelWidth,
                                                    int pixelHeight);
  // The same area as `rects`, as rectangles that don't overlap (so that a blended draw
  // per rectangle never covers a pixel twice).
  static std::vector<Rect> disjointRects(std::span<const Rect> rects);

 private:
  void resetPerf(double now);

  bool inFlight_ = false;
  bool wasEmpty_ = false;
  Counters counters_;

  // Perf measurements since perfSince_.
  double perfSum_ = 0, perfMax_ = 0, cpuSum_ = 0, cpuMax_ = 0, gapMax_ = 0;
  int perfN_ = 0, skipped_ = 0;
  double perfSince_ = -1, lastDraw_ = -1;
  Size perfLabel_;
};

}  // namespace zorvane
