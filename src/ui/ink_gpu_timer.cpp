#include "ui/ink_gpu_timer.h"

#include <QOpenGLContext>
#include <QOpenGLExtraFunctions>

#ifndef GL_TIME_ELAPSED
#define GL_TIME_ELAPSED 0x88BF
#endif

namespace zorvane {

InkGpuTimer::InkGpuTimer() {
  QOpenGLContext* context = QOpenGLContext::currentContext();
  if (!context) return;
  if (context->isOpenGLES())
    available_ = context->format().majorVersion() >= 3 && context->hasExtension("GL_EXT_disjoint_timer_query");
  else
    available_ = context->format().version() >= qMakePair(3, 3) || context->hasExtension("GL_ARB_timer_query");
}

void InkGpuTimer::begin() {
  if (!available_ || running_ || inUse_ == kRing) return;
  QOpenGLExtraFunctions* f = QOpenGLContext::currentContext()->extraFunctions();
  if (!created_) {
    f->glGenQueries(kRing, queries_.data());
    created_ = true;
  }
  f->glBeginQuery(GL_TIME_ELAPSED, queries_[next_]);
  running_ = true;
}

void InkGpuTimer::end() {
  if (!running_) return;
  QOpenGLExtraFunctions* f = QOpenGLContext::currentContext()->extraFunctions();
  f->glEndQuery(GL_TIME_ELAPSED);
  running_ = false;
  next_ = (next_ + 1) % kRing;
  ++inUse_;
}

void InkGpuTimer::poll(std::vector<double>& out) {
  if (!created_) return;
  QOpenGLExtraFunctions* f = QOpenGLContext::currentContext()->extraFunctions();
  while (inUse_ > 0) {
    GLuint ready = 0;
    f->glGetQueryObjectuiv(queries_[oldest_], GL_QUERY_RESULT_AVAILABLE, &ready);
    if (!ready) return;
    GLuint nanoseconds = 0;  // 32 bits hold over 4 s, far beyond one frame
    f->glGetQueryObjectuiv(queries_[oldest_], GL_QUERY_RESULT, &nanoseconds);
    out.push_back(double(nanoseconds) / 1e6);
    oldest_ = (oldest_ + 1) % kRing;
    --inUse_;
  }
}

void InkGpuTimer::release() {
  if (!created_) return;
  if (QOpenGLContext* context = QOpenGLContext::currentContext())
    context->extraFunctions()->glDeleteQueries(kRing, queries_.data());
  created_ = false;
  running_ = false;
  inUse_ = 0;
}

}  // namespace zorvane
