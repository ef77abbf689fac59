// InkOffscreenRenderer: the GPU ink renderer drawing into an image, with no window:
// an OpenGL context of its own on an offscreen surface, and a framebuffer it owns.
//
// It owns its target, so each frame is cleared to transparent and drawn without
// blending: every pixel is written once, premultiplied, exactly as the shader computed
// it. Used by the zorvane-ink tool, the tests that hold the GPU to the CPU reference,
// and the benchmarks.
//
// Needs a QGuiApplication, and on X11 a display: `create()` says so when no context can
// be made. Use from the thread that created it.
#pragma once

#include <memory>

#include "core/base/expected.h"
#include "core/ink/goo_scene.h"
#include "core/ink/ink_reference.h"
#include "ui/ink_frame_loop.h"

class QOpenGLContext;
class QOffscreenSurface;
class QOpenGLFramebufferObject;

namespace zorvane {

class InkGpuPipeline;

class InkOffscreenRenderer {
 public:
  enum class Api { desktop, gles };

  // A desktop context asks for OpenGL 3.3 core, a GLES one for OpenGL ES 3.0.
  [[nodiscard]] static Expected<std::unique_ptr<InkOffscreenRenderer>> create(Api api = Api::desktop);
  ~InkOffscreenRenderer();

  // The scene at `time` (seconds since 1970) in a view of `viewSize` points, at `scale`
  // device pixels per point: ceil(width × scale) by ceil(height × scale) pixels,
  // premultiplied, top row first, like InkReference::render.
  [[nodiscard]] Expected<InkImage> render(const GooScene& scene, Size viewSize, double scale, double time,
                                          double tileSize = 0);

  // Lower level, for benchmarks: clears a target of the frame's size and draws the
  // already binned frame (scissored to its dirty rectangle); no read-back. Returns the
  // number of draw calls. `finish()` waits until the GPU is done.
  int draw(const InkFrame& frame);
  void finish();

  InkGpuPipeline& pipeline() { return *pipeline_; }
  // A description of the context, such as "OpenGL 4.5 core, llvmpipe (LLVM 15.0.6, 256 bits)".
  std::string description() const;

 private:
  InkOffscreenRenderer();
  bool bindTarget(int width, int height);

  std::unique_ptr<QOffscreenSurface> surface_;
  std::unique_ptr<QOpenGLContext> context_;
  std::unique_ptr<QOpenGLFramebufferObject> target_;
  InkGpuPipeline* pipeline_ = nullptr;
};

}  // namespace zorvane
