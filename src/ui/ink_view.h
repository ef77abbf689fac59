// InkView: a Qt Quick item that shows goo, drawn by the GPU ink shader inside the
// window's own frame (a QSGRenderNode with raw OpenGL, blended over what lies below).
//
// A precise timer ticks at `preferredFramesPerSecond` while the item is in a window and
// not paused. Each tick runs InkFrameLoop: the `scene` callback is called with the wall
// time (seconds since 1970) and the view size in points, every tick, drawn or not; at
// most one frame is in flight (set when handed to the scene graph, cleared on the main
// thread once the window has swapped that frame); an empty view, once cleared, goes
// idle: no GL work and no allocation per tick.
//
// `clipRects` (points in the view) limit what shows: the frame is scissored to each of
// them. The window must render with OpenGL (QQuickWindow::setGraphicsApi before the
// first window); otherwise, or if the shader can't be built, nothing is drawn and the
// rest of the window works. Item opacity and transforms other than translation are not
// applied to the goo.
//
// With `--perf` on the command line, one line of frame timings is logged every two
// seconds or so: GPU time from GL timer queries where the context has them, else the
// CPU time of the render call.
//
// Lives on the GUI thread; the render node runs on the scene graph's render thread and
// shares only an InkViewShared (atomics and a mutex-guarded list) with the item.
#pragma once

#include <QQuickItem>
#include <QTimer>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "ui/ink_frame_loop.h"

namespace zorvane {

// What the item and its render node share across threads.
struct InkViewShared {
  std::atomic<uint64_t> draws{0};        // GL draw calls issued
  std::atomic<uint64_t> allocations{0};  // GPU buffers (re)made for this view's frames
  std::atomic<bool> pipelineFailed{false};
  std::mutex mutex;
  std::vector<double> gpuMilliseconds;  // finished frames' GPU times, for --perf
};

class InkView : public QQuickItem {
  Q_OBJECT
  Q_PROPERTY(bool isPaused READ isPaused WRITE setPaused NOTIFY pausedChanged)
  Q_PROPERTY(int preferredFramesPerSecond READ preferredFramesPerSecond WRITE setPreferredFramesPerSecond NOTIFY
                 preferredFramesPerSecondChanged)

 public:
  using SceneCallback = InkFrameLoop::SceneCallback;

  struct Stats {
    uint64_t ticks = 0, handOffs = 0, skipped = 0;
    uint64_t draws = 0;        // GL draw calls
    uint64_t allocations = 0;  // binning buffers grown + GPU buffers (re)made
  };

  explicit InkView(QQuickItem* parent = nullptr);
  InkView(int framesPerSecond, SceneCallback scene, QQuickItem* parent = nullptr);
  ~InkView() override;

  void setScene(SceneCallback scene);
  const std::optional<std::vector<Rect>>& clipRects() const { return clipRects_; }
  void setClipRects(std::optional<std::vector<Rect>> rects);

  bool isPaused() const { return loop_.isPaused; }
  void setPaused(bool paused);
  int preferredFramesPerSecond() const { return framesPerSecond_; }
  void setPreferredFramesPerSecond(int framesPerSecond);

  // Perf logging; on by default when the program was started with --perf.
  void setPerfLogging(bool on) { loop_.perfEnabled = on; }
  // Keeps the scene of the last frame handed off (see InkFrameLoop::keepsScene).
  void setKeepsScene(bool keep) { loop_.keepsScene = keep; }
  const GooScene& lastScene() const { return loop_.lastScene; }
  double lastSceneTime() const { return loop_.lastTime; }
  // Called with each frame handed off to the renderer, on the GUI thread.
  std::function<void(const InkFrame&)> onFrame;

  // The display tick (the timer's target). Public so that a caller can drive the view.
  void frameTick();
  // Device pixels per point: the window's ratio, 2 without a window.
  double scale() const;
  bool isTicking() const { return timer_.isActive(); }
  bool isInFlight() const { return loop_.isInFlight(); }
  Stats stats() const;

 Q_SIGNALS:
  void pausedChanged();
  void preferredFramesPerSecondChanged();
  // A frame handed off by a tick has been rendered and swapped.
  void frameFinished();

 protected:
  QSGNode* updatePaintNode(QSGNode* node, UpdatePaintNodeData* data) override;

 private:
  void updateTimer();
  void attachToWindow(QQuickWindow* window);
  void windowSwapped();

  InkFrameLoop loop_;
  InkFrame pending_;             // the frame handed off, until the scene graph takes it
  bool pendingFresh_ = false;    // pending_ holds a frame the node hasn't taken yet
  bool synced_ = false;          // the node took the frame in flight; its swap ends it
  bool clipChanged_ = false;
  std::optional<std::vector<Rect>> clipRects_;
  std::vector<Rect> clipPieces_;  // clipRects_ made disjoint
  int framesPerSecond_ = 60;
  QTimer timer_;
  QMetaObject::Connection swapConnection_;
  std::shared_ptr<InkViewShared> shared_ = std::make_shared<InkViewShared>();
};

}  // namespace zorvane
