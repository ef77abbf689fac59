// InkRenderNode: the scene-graph node of an InkView. On the render thread it draws the
// frame it was last given with the context's shared InkGpuPipeline, straight into the
// framebuffer Qt Quick is rendering (whatever is bound: it binds no framebuffer of its
// own, and clears nothing), blended ONE, ONE_MINUS_SRC_ALPHA over what lies
// below, without clearing.
//
// It keeps the frame until the next one arrives and draws it again whenever Qt Quick
// renders the window; an empty frame costs nothing. The GL state it touches beyond
// changedStates() (vertex array, program, textures, uniform buffer, unpack state) is
// restored before it returns.
//
// The public fields are written by InkView::updatePaintNode while the GUI thread is
// blocked for the scene graph's sync, and read only on the render thread otherwise.
#pragma once

#include <QMatrix4x4>
#include <QSGRenderNode>

#include <memory>
#include <vector>

#include "ui/ink_frame_loop.h"
#include "ui/ink_gpu_pipeline.h"
#include "ui/ink_gpu_timer.h"
#include "ui/ink_view.h"

class QOpenGLContext;

namespace zorvane {

class InkRenderNode : public QSGRenderNode {
 public:
  explicit InkRenderNode(std::shared_ptr<InkViewShared> shared);
  ~InkRenderNode() override;

  void prepare() override;
  void render(const RenderState* state) override;
  StateFlags changedStates() const override;
  RenderingFlags flags() const override;
  QRectF rect() const override;
  void releaseResources() override;

  InkFrame frame;
  bool clipped = false;
  std::vector<Rect> clipPieces;  // disjoint, in view points
  QRectF itemRect;
  bool perf = false;

 private:
  void addScissor(const Rect& points, const InkTarget& target, const RenderState* state);

  QMatrix4x4 modelView_;
  std::shared_ptr<InkViewShared> shared_;
  std::vector<InkDeviceRect> scissors_;
  std::unique_ptr<InkGpuTimer> timer_;
  QOpenGLContext* timerContext_ = nullptr;
  std::vector<double> timings_;
};

}  // namespace zorvane
