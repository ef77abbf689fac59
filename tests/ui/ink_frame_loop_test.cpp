// The frame loop's decisions, driven tick by tick without a display.
#include "ui/ink_frame_loop.h"

#include <gtest/gtest.h>

#include <regex>

namespace zorvane {

using Outcome = InkFrameLoop::TickOutcome;

static GooScene oneBlob() {
  GooScene scene;
  scene.blobs = {{{100, 60}, 20}};
  scene.blend = 8;
  return scene;
}

// After frames with shapes, the first empty frame is still handed off (to clear the
// view), then the view idles: the callback still runs each tick, but nothing is binned,
// allocated or handed off until shapes come back.
TEST(InkFrameLoop, EmptySceneClearsOnceThenIdles) {
  InkFrameLoop loop;
  loop.tileSize = 32;
  int calls = 0;
  bool shapes = true;
  loop.scene = [&](double, Size) {
    ++calls;
    return shapes ? oneBlob() : GooScene{};
  };
  InkFrame frame;
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(loop.tick(i, {440, 200}, 2, true, frame), Outcome::handedOff);
    EXPECT_TRUE(frame.hasShapes());
    loop.frameFinished();
  }
  // The dirty rectangle is the blob's box grown by 39, clipped to the view.
  EXPECT_EQ(frame.dirty, (Rect{41, 1, 118, 118}));
  uint64_t allocations = loop.counters().allocations;
  EXPECT_GT(allocations, 0u);

  shapes = false;
  ASSERT_EQ(loop.tick(3, {440, 200}, 2, true, frame), Outcome::handedOff);
  EXPECT_FALSE(frame.hasShapes()) << "the clearing frame must draw nothing";
  loop.frameFinished();
  for (int i = 0; i < 50; ++i) EXPECT_EQ(loop.tick(4 + i, {440, 200}, 2, true, frame), Outcome::idle);
  EXPECT_EQ(calls, 54) << "the scene callback runs on every tick, drawn or not";
  EXPECT_EQ(loop.counters().handOffs, 4u);
  EXPECT_EQ(loop.counters().allocations, allocations) << "idle ticks must not allocate";

  shapes = true;
  EXPECT_EQ(loop.tick(60, {440, 200}, 2, true, frame), Outcome::handedOff);
  loop.frameFinished();
  EXPECT_EQ(loop.counters().allocations, allocations) << "a frame like earlier ones reuses their buffers";

  // Without a pipeline nothing is handed off, but emptiness is still tracked.
  EXPECT_EQ(loop.tick(61, {440, 200}, 2, false, frame), Outcome::noPipeline);
  EXPECT_FALSE(loop.isInFlight());
}

// A tick that finds a frame in flight is counted as skipped, yet advances the scene;
// a paused loop does nothing at all.
TEST(InkFrameLoop, InFlightSkipsAndPausedDoesNothing) {
  InkFrameLoop loop;
  loop.tileSize = 32;
  std::vector<double> times;
  loop.scene = [&](double t, Size) {
    times.push_back(t);
    return oneBlob();
  };
  InkFrame frame;
  EXPECT_EQ(loop.tick(1, {200, 100}, 2, true, frame), Outcome::handedOff);
  EXPECT_TRUE(loop.isInFlight());
  EXPECT_EQ(loop.tick(2, {200, 100}, 2, true, frame), Outcome::skipped);
  EXPECT_EQ(loop.tick(3, {200, 100}, 2, true, frame), Outcome::skipped);
  EXPECT_EQ(loop.counters().skipped, 2u);
  EXPECT_EQ(times, (std::vector<double>{1, 2, 3}));
  loop.frameFinished();
  EXPECT_EQ(loop.tick(4, {200, 100}, 2, true, frame), Outcome::handedOff);
  loop.frameFinished();

  loop.isPaused = true;
  for (int i = 0; i < 5; ++i) EXPECT_EQ(loop.tick(5 + i, {200, 100}, 2, true, frame), Outcome::paused);
  EXPECT_EQ(times.size(), 4u) << "a paused view doesn't ask for scenes";
  EXPECT_EQ(loop.counters().handOffs, 2u);
  EXPECT_FALSE(loop.isInFlight());
}

// With perf logging, one line in the agreed format comes after more than two seconds,
// and the counters start over.
TEST(InkFrameLoop, PerfLineEveryTwoSeconds) {
  InkFrameLoop loop;
  loop.tileSize = 32;
  loop.perfEnabled = true;
  std::vector<std::string> lines;
  loop.logLine = [&](const std::string& line) { lines.push_back(line); };
  loop.scene = [](double, Size) { return oneBlob(); };
  InkFrame frame;

  double t = 1000;
  loop.tick(t, {440.7, 200}, 2, true, frame);
  loop.tick(t + 0.016, {440.7, 200}, 2, true, frame);  // skipped
  loop.frameFinished();
  loop.recordPerf(1.5, t + 0.02);
  loop.tick(t + 0.05, {440.7, 200}, 2, true, frame);  // worst gap: 34 ms
  loop.frameFinished();
  loop.recordPerf(2.0, t + 1.0);
  EXPECT_TRUE(lines.empty());
  loop.recordPerf(2.5, t + 2.5);
  ASSERT_EQ(lines.size(), 1u);
  std::regex format(
      "perf 440x200 gpu avg 2\\.00ms max 2\\.50ms \xC2\xB7 main thread avg [0-9]+\\.[0-9]{2}ms max "
      "[0-9]+\\.[0-9]{2}ms \xC2\xB7 worst gap 34\\.0ms \xC2\xB7 3 frames, 1 skipped");
  EXPECT_TRUE(std::regex_match(lines[0], format)) << lines[0];

  loop.recordPerf(4.0, t + 3.0);
  loop.recordPerf(4.0, t + 4.6);
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_NE(lines[1].find("gpu avg 4.00ms max 4.00ms"), std::string::npos) << lines[1];
  EXPECT_NE(lines[1].find("2 frames, 0 skipped"), std::string::npos) << lines[1];
}

// Scissors follow the rounding rules and stay inside the view; clip rectangles are
// split so that no pixel is drawn twice.
TEST(InkFrameLoop, ScissorsAndClipPieces) {
  auto s = InkFrameLoop::deviceScissor({10.3, 5.6, 20.2, 10.1}, 2, 100, 100);
  ASSERT_TRUE(s);
  EXPECT_EQ(*s, (InkDeviceRect{20, 11, 41, 21}));
  EXPECT_EQ(*InkFrameLoop::deviceScissor({-5, -5, 100, 100}, 2, 60, 40), (InkDeviceRect{0, 0, 60, 40}));
  EXPECT_EQ(*InkFrameLoop::deviceScissor({10, 10, 0.1, 0.1}, 1, 60, 40), (InkDeviceRect{10, 10, 1, 1}));
  EXPECT_FALSE(InkFrameLoop::deviceScissor({}, 2, 60, 40));
  EXPECT_FALSE(InkFrameLoop::deviceScissor({70, 0, 5, 5}, 1, 60, 40));

  std::vector<Rect> clips{{0, 0, 100, 100}, {50, 50, 100, 100}, {20, 20, 10, 10}, {200, 0, 10, 10}};
  std::vector<Rect> pieces = InkFrameLoop::disjointRects(clips);
  double area = 0;
  for (size_t i = 0; i < pieces.size(); ++i) {
    area += pieces[i].width * pieces[i].height;
    for (size_t j = i + 1; j < pieces.size(); ++j) {
      Rect overlap;
      EXPECT_FALSE(intersect(pieces[i], pieces[j], overlap) && !overlap.isEmpty()) << i << " overlaps " << j;
    }
  }
  EXPECT_DOUBLE_EQ(area, 100 * 100 + 100 * 100 - 50 * 50 + 10 * 10);
}

}  // namespace zorvane
