#include "ui/ink_render_node.h"

#include <QOpenGLContext>
#include <QOpenGLExtraFunctions>

#include <chrono>
#include <cmath>

#include "ui/ink_gpu_pipeline.h"

namespace zorvane {

namespace {

// The GL state the pipeline changes beyond what changedStates() hands back to Qt Quick.
class SavedGLState {
 public:
  explicit SavedGLState(QOpenGLExtraFunctions* f) : f_(f) {
    f->glGetIntegerv(GL_VERTEX_ARRAY_BINDING, &vertexArray_);
    f->glGetIntegerv(GL_CURRENT_PROGRAM, &program_);
    f->glGetIntegerv(GL_ACTIVE_TEXTURE, &activeTexture_);
    for (int unit = 0; unit < 3; ++unit) {
      f->glActiveTexture(GL_TEXTURE0 + unit);
      f->glGetIntegerv(GL_TEXTURE_BINDING_2D, &textures_[unit]);
    }
    f->glGetIntegerv(GL_UNIFORM_BUFFER_BINDING, &uniformBuffer_);
    f->glGetIntegeri_v(GL_UNIFORM_BUFFER_BINDING, 0, &uniformBinding0_);
    f->glGetIntegerv(GL_PIXEL_UNPACK_BUFFER_BINDING, &unpackBuffer_);
    f->glGetIntegerv(GL_UNPACK_ALIGNMENT, &unpackAlignment_);
    f->glGetIntegerv(GL_UNPACK_ROW_LENGTH, &unpackRowLength_);
  }
  ~SavedGLState() {
    for (int unit = 0; unit < 3; ++unit) {
      f_->glActiveTexture(GL_TEXTURE0 + unit);
      f_->glBindTexture(GL_TEXTURE_2D, GLuint(textures_[unit]));
    }
    f_->glActiveTexture(GLenum(activeTexture_));
    f_->glBindBufferBase(GL_UNIFORM_BUFFER, 0, GLuint(uniformBinding0_));
    f_->glBindBuffer(GL_UNIFORM_BUFFER, GLuint(uniformBuffer_));
    f_->glBindBuffer(GL_PIXEL_UNPACK_BUFFER, GLuint(unpackBuffer_));
    f_->glPixelStorei(GL_UNPACK_ALIGNMENT, unpackAlignment_);
    f_->glPixelStorei(GL_UNPACK_ROW_LENGTH, unpackRowLength_);
    f_->glUseProgram(GLuint(program_));
    f_->glBindVertexArray(GLuint(vertexArray_));
  }
  SavedGLState(const SavedGLState&) = delete;
  SavedGLState& operator=(const SavedGLState&) = delete;

 private:
  QOpenGLExtraFunctions* f_;
  GLint vertexArray_ = 0, program_ = 0, activeTexture_ = GL_TEXTURE0, textures_[3] = {};
  GLint uniformBuffer_ = 0, uniformBinding0_ = 0, unpackBuffer_ = 0, unpackAlignment_ = 4, unpackRowLength_ = 0;
};

double steadyMilliseconds() {
  using namespace std::chrono;
  return duration<double, std::milli>(steady_clock::now().time_since_epoch()).count();
}

}  // namespace

InkRenderNode::InkRenderNode(std::shared_ptr<InkViewShared> shared) : shared_(std::move(shared)) {}

InkRenderNode::~InkRenderNode() { releaseResources(); }

void InkRenderNode::releaseResources() {
  if (timer_ && QOpenGLContext::currentContext() == timerContext_) timer_->release();
  timer_.reset();
  timerContext_ = nullptr;
}

QSGRenderNode::StateFlags InkRenderNode::changedStates() const {
  return BlendState | ScissorState | ViewportState;
}

QSGRenderNode::RenderingFlags InkRenderNode::flags() const { return BoundedRectRendering; }

QRectF InkRenderNode::rect() const { return itemRect; }

void InkRenderNode::prepare() {
  // matrix() is only valid here, not in render().
  modelView_ = matrix() ? *matrix() : QMatrix4x4();
}

void InkRenderNode::addScissor(const Rect& points, const InkTarget& target, const RenderState* state) {
  int viewWidth = std::max(int(std::ceil(frame.size.width * frame.scale)), 1);
  int viewHeight = std::max(int(std::ceil(frame.size.height * frame.scale)), 1);
  std::optional<InkDeviceRect> inView = InkFrameLoop::deviceScissor(points, frame.scale, viewWidth, viewHeight);
  if (!inView) return;
  std::optional<InkDeviceRect> area = target.toFramebuffer(*inView);
  if (!area) return;
  QRect rect(area->x, area->y, area->width, area->height);
  if (state && state->scissorEnabled()) rect &= state->scissorRect();  // Qt Quick's clip, also in GL coordinates
  if (rect.isEmpty()) return;
  scissors_.push_back({rect.x(), rect.y(), rect.width(), rect.height()});
}

// Where the view lies in the framebuffer Qt Quick renders to, from the projection (the
// framebuffer's size in points, and which way its rows run) and the model-view matrix
// of prepare() (the view's place in it). GL_VIEWPORT can't be trusted at this point.
static InkTarget targetOf(const QMatrix4x4& projection, const QMatrix4x4& modelView, double scale) {
  InkTarget target;
  float sx = projection(0, 0), sy = projection(1, 1);
  if (sx == 0 || sy == 0) return target;
  target.width = int(std::lround(2.0 / std::abs(sx) * scale));
  target.height = int(std::lround(2.0 / std::abs(sy) * scale));
  QMatrix4x4 toClip = projection * modelView;
  QPointF topLeft = toClip.map(QPointF(0, 0));
  target.viewX = float((topLeft.x() + 1) / 2 * target.width);
  target.viewTop = float((topLeft.y() + 1) / 2 * target.height);
  target.rowsDown = toClip(1, 1) > 0;
  target.blend = true;
  return target;
}

void InkRenderNode::render(const RenderState* state) {
  if (!frame.hasShapes()) return;  // nothing to draw, so no GL at all
  QOpenGLContext* context = QOpenGLContext::currentContext();
  if (!context || !state || !state->projectionMatrix()) return;
  InkGpuPipeline* pipeline = InkGpuPipeline::forCurrentContext();
  if (!pipeline) {
    shared_->pipelineFailed = true;
    return;
  }
  QOpenGLExtraFunctions* f = context->extraFunctions();
  InkTarget target = targetOf(*state->projectionMatrix(), modelView_, frame.scale);
  if (target.width < 1 || target.height < 1) return;

  scissors_.clear();
  if (clipped) {
    for (const Rect& piece : clipPieces) {
      Rect visible;
      if (intersect(frame.dirty, piece, visible) && !visible.isEmpty()) addScissor(visible, target, state);
    }
  } else {
    addScissor(frame.dirty, target, state);
  }
  if (scissors_.empty()) return;

  SavedGLState saved(f);
  if (perf && (!timer_ || timerContext_ != context)) {
    timer_ = std::make_unique<InkGpuTimer>();
    timerContext_ = context;
  }
  bool gpuTimed = perf && timer_->isAvailable();
  double cpuStart = perf && !gpuTimed ? steadyMilliseconds() : 0;
  if (gpuTimed) timer_->begin();

  uint64_t allocationsBefore = pipeline->allocations();
  int draws = pipeline->draw(frame.binned, frame.uniforms, target, scissors_);
  shared_->draws += uint64_t(draws);
  shared_->allocations += pipeline->allocations() - allocationsBefore;

  if (!perf) return;
  timings_.clear();
  if (gpuTimed) {
    timer_->end();
    timer_->poll(timings_);
  } else {
    timings_.push_back(steadyMilliseconds() - cpuStart);
  }
  if (timings_.empty()) return;
  std::lock_guard lock(shared_->mutex);
  shared_->gpuMilliseconds.insert(shared_->gpuMilliseconds.end(), timings_.begin(), timings_.end());
}

}  // namespace zorvane
