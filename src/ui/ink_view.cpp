#include "ui/ink_view.h"

#include <QCoreApplication>
#include <QQuickWindow>
#include <QSGRendererInterface>

#include <chrono>

#include "core/base/log.h"
#include "ui/ink_render_node.h"

namespace zorvane {

static double secondsSince1970() {
  using namespace std::chrono;
  return duration<double>(system_clock::now().time_since_epoch()).count();
}

static bool startedWithPerf() {
  return QCoreApplication::instance() && QCoreApplication::arguments().contains(QStringLiteral("--perf"));
}

InkView::InkView(QQuickItem* parent) : QQuickItem(parent) {
  setFlag(ItemHasContents, true);
  loop_.perfEnabled = startedWithPerf();
  timer_.setTimerType(Qt::PreciseTimer);
  connect(&timer_, &QTimer::timeout, this, &InkView::frameTick);
  connect(this, &QQuickItem::windowChanged, this, &InkView::attachToWindow);
  // A frame dropped while hidden is shown as soon as the view is visible again.
  connect(this, &QQuickItem::visibleChanged, this, [this] {
    if (pendingFresh_ && isVisible()) update();
  });
  attachToWindow(window());  // a parent given here already placed it in a window
}

InkView::InkView(int framesPerSecond, SceneCallback scene, QQuickItem* parent) : InkView(parent) {
  loop_.scene = std::move(scene);
  setPreferredFramesPerSecond(framesPerSecond);
}

InkView::~InkView() = default;

void InkView::setScene(SceneCallback scene) { loop_.scene = std::move(scene); }

void InkView::setClipRects(std::optional<std::vector<Rect>> rects) {
  clipRects_ = std::move(rects);
  clipPieces_ = clipRects_ ? InkFrameLoop::disjointRects(*clipRects_) : std::vector<Rect>{};
  clipChanged_ = true;
  update();
}

void InkView::setPaused(bool paused) {
  if (paused == loop_.isPaused) return;
  loop_.isPaused = paused;
  updateTimer();
  Q_EMIT pausedChanged();
}

void InkView::setPreferredFramesPerSecond(int framesPerSecond) {
  framesPerSecond = std::clamp(framesPerSecond, 1, 240);
  if (framesPerSecond == framesPerSecond_) return;
  framesPerSecond_ = framesPerSecond;
  updateTimer();
  Q_EMIT preferredFramesPerSecondChanged();
}

double InkView::scale() const {
  QQuickWindow* w = window();
  return w ? w->effectiveDevicePixelRatio() : 2.0;
}

InkView::Stats InkView::stats() const {
  const InkFrameLoop::Counters& c = loop_.counters();
  return Stats{c.ticks, c.handOffs, c.skipped, shared_->draws.load(), c.allocations + shared_->allocations.load()};
}

void InkView::updateTimer() {
  bool run = window() && !loop_.isPaused;
  if (!run) {
    timer_.stop();
    return;
  }
  int interval = std::max(1000 / framesPerSecond_, 1);
  if (!timer_.isActive() || timer_.interval() != interval) timer_.start(interval);
}

void InkView::frameTick() {
  InkFrameLoop::TickOutcome outcome =
      loop_.tick(secondsSince1970(), Size{width(), height()}, scale(), !shared_->pipelineFailed, pending_);
  if (outcome != InkFrameLoop::TickOutcome::handedOff) return;
  pendingFresh_ = true;
  if (onFrame) onFrame(pending_);
  if (!window() || !isVisible()) {
    // Nothing will render it: the frame is dropped, and the node takes the latest one
    // once there is a window.
    loop_.frameFinished();
    return;
  }
  update();
}

QSGNode* InkView::updatePaintNode(QSGNode* old, UpdatePaintNodeData*) {
  auto* node = static_cast<InkRenderNode*>(old);
  if (!node) {
    QSGRendererInterface* renderer = window() ? window()->rendererInterface() : nullptr;
    if (!renderer || renderer->graphicsApi() != QSGRendererInterface::OpenGL) {
      static bool logged = false;
      if (!logged) {
        logged = true;
        Log::info("ink shader failed: the window does not render with OpenGL");
      }
      shared_->pipelineFailed = true;
      pendingFresh_ = false;
      return nullptr;
    }
    node = new InkRenderNode(shared_);
    clipChanged_ = true;
  }
  if (pendingFresh_) {
    std::swap(node->frame, pending_);
    pendingFresh_ = false;
    if (loop_.isInFlight()) synced_ = true;
  }
  if (clipChanged_) {
    node->clipped = clipRects_.has_value();
    node->clipPieces = clipPieces_;
    clipChanged_ = false;
  }
  node->itemRect = QRectF(0, 0, width(), height());
  node->perf = loop_.perfEnabled;
  node->markDirty(QSGNode::DirtyMaterial);
  return node;
}

void InkView::attachToWindow(QQuickWindow* window) {
  QObject::disconnect(swapConnection_);
  if (window)
    swapConnection_ = connect(window, &QQuickWindow::frameSwapped, this, &InkView::windowSwapped,
                              Qt::QueuedConnection);
  // A frame handed to the old window's scene graph won't come back from it.
  if (synced_ || loop_.isInFlight()) {
    synced_ = false;
    loop_.frameFinished();
  }
  // The new node starts empty: a view with shapes hands off its next frame anyway, and
  // an idle one has nothing to show.
  pending_.binned.prims.clear();
  pending_.binned.ranges.clear();
  pending_.binned.indices.clear();
  pending_.dirty = Rect{};
  pendingFresh_ = true;
  clipChanged_ = true;
  if (window) update();
  updateTimer();
}

void InkView::windowSwapped() {
  if (synced_) {
    synced_ = false;
    loop_.frameFinished();
    Q_EMIT frameFinished();
  }
  if (!loop_.perfEnabled) return;
  std::vector<double> timings;
  {
    std::lock_guard lock(shared_->mutex);
    timings.swap(shared_->gpuMilliseconds);
  }
  double now = secondsSince1970();
  for (double ms : timings) loop_.recordPerf(ms, now);
}

}  // namespace zorvane
