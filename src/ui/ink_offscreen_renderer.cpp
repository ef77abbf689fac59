#include "ui/ink_offscreen_renderer.h"

#include <QGuiApplication>
#include <QOffscreenSurface>
#include <QOpenGLContext>
#include <QOpenGLExtraFunctions>
#include <QOpenGLFramebufferObject>

#include <cmath>
#include <cstdlib>
#include <cstring>

#include "ui/ink_gpu_pipeline.h"

namespace zorvane {

InkOffscreenRenderer::InkOffscreenRenderer() = default;

InkOffscreenRenderer::~InkOffscreenRenderer() {
  if (context_ && surface_ && context_->makeCurrent(surface_.get())) {
    target_.reset();
    context_.reset();  // drops this context's pipeline while it is still current
  }
}

Expected<std::unique_ptr<InkOffscreenRenderer>> InkOffscreenRenderer::create(Api api) {
  if (!QGuiApplication::instance()) return Failure{"no OpenGL context: no QGuiApplication"};
  std::unique_ptr<InkOffscreenRenderer> renderer(new InkOffscreenRenderer);

  QSurfaceFormat format;
  if (api == Api::gles || QOpenGLContext::openGLModuleType() == QOpenGLContext::LibGLES) {
    format.setRenderableType(QSurfaceFormat::OpenGLES);
    format.setVersion(3, 0);
  } else {
    format.setRenderableType(QSurfaceFormat::OpenGL);
    format.setVersion(3, 3);
    format.setProfile(QSurfaceFormat::CoreProfile);
  }
  renderer->context_ = std::make_unique<QOpenGLContext>();
  renderer->context_->setFormat(format);
  if (!renderer->context_->create()) {
    bool noDisplay = !std::getenv("DISPLAY") && !std::getenv("WAYLAND_DISPLAY");
    return Failure{noDisplay ? "no OpenGL context: the GPU renderer needs a display and DISPLAY is not set"
                             : "no OpenGL context could be made on platform " +
                                   QGuiApplication::platformName().toStdString()};
  }
  renderer->surface_ = std::make_unique<QOffscreenSurface>();
  renderer->surface_->setFormat(renderer->context_->format());
  renderer->surface_->create();
  if (!renderer->surface_->isValid() || !renderer->context_->makeCurrent(renderer->surface_.get()))
    return Failure{"no OpenGL context: the offscreen surface can't be made current"};
  if (api == Api::gles && !renderer->context_->isOpenGLES())
    return Failure{"no OpenGL ES context: the platform gave desktop OpenGL"};
  renderer->pipeline_ = InkGpuPipeline::forCurrentContext();
  if (!renderer->pipeline_) return Failure{"ink shader failed: " + InkGpuPipeline::lastFailure()};
  return renderer;
}

std::string InkOffscreenRenderer::description() const {
  QSurfaceFormat format = context_->format();
  std::string text = context_->isOpenGLES() ? "OpenGL ES " : "OpenGL ";
  text += std::to_string(format.majorVersion()) + "." + std::to_string(format.minorVersion());
  if (format.profile() == QSurfaceFormat::CoreProfile) text += " core";
  if (context_->makeCurrent(surface_.get())) {
    auto* renderer = reinterpret_cast<const char*>(context_->functions()->glGetString(GL_RENDERER));
    if (renderer) text += std::string(", ") + renderer;
  }
  return text;
}

bool InkOffscreenRenderer::bindTarget(int width, int height) {
  if (!context_->makeCurrent(surface_.get())) return false;
  if (!target_ || target_->width() != width || target_->height() != height) {
    target_.reset();
    target_ = std::make_unique<QOpenGLFramebufferObject>(width, height, QOpenGLFramebufferObject::NoAttachment,
                                                         GL_TEXTURE_2D, GL_RGBA8);
    if (!target_->isValid()) {
      target_.reset();
      return false;
    }
  }
  target_->bind();
  QOpenGLExtraFunctions* f = context_->extraFunctions();
  f->glViewport(0, 0, width, height);
  f->glDisable(GL_SCISSOR_TEST);
  f->glClearColor(0, 0, 0, 0);
  f->glClear(GL_COLOR_BUFFER_BIT);
  return true;
}

int InkOffscreenRenderer::draw(const InkFrame& frame) {
  int width = std::max(int(std::ceil(frame.size.width * frame.scale)), 1);
  int height = std::max(int(std::ceil(frame.size.height * frame.scale)), 1);
  if (!bindTarget(width, height)) return 0;
  if (!frame.hasShapes()) return 0;
  std::optional<InkDeviceRect> scissor = InkFrameLoop::deviceScissor(frame.dirty, frame.scale, width, height);
  if (!scissor) return 0;
  InkTarget target = InkTarget::wholeView(width, height, false);
  std::optional<InkDeviceRect> area = target.toFramebuffer(*scissor);
  if (!area) return 0;
  return pipeline_->draw(frame.binned, frame.uniforms, target, std::span<const InkDeviceRect>(&*area, 1));
}

void InkOffscreenRenderer::finish() {
  if (context_->makeCurrent(surface_.get())) context_->functions()->glFinish();
}

Expected<InkImage> InkOffscreenRenderer::render(const GooScene& scene, Size viewSize, double scale, double time,
                                                double tileSize) {
  if (!(viewSize.width > 0 && viewSize.height > 0 && scale > 0))
    return Failure{"ink render: the view size and the scale must be above 0"};
  InkImage image;
  image.width = int(std::ceil(viewSize.width * scale));
  image.height = int(std::ceil(viewSize.height * scale));
  if (image.width > 16384 || image.height > 16384)
    return Failure{"ink render: " + std::to_string(image.width) + "x" + std::to_string(image.height) +
                   " pixels is more than 16384 on a side"};

  InkFrame frame;
  frame.size = viewSize;
  frame.scale = scale;
  double tile = tileSize > 0 ? tileSize : InkPipeline::tile();
  if (!scene.isEmpty()) {
    InkPipeline::bin(scene, viewSize, tile, frame.binned);
    if (!intersect(scene.bounds().grownBy(39), Rect{0, 0, viewSize.width, viewSize.height}, frame.dirty))
      frame.dirty = Rect{};
  }
  frame.uniforms = InkPipeline::uniforms(scene, viewSize, scale, time, frame.binned, tile);

  if (!bindTarget(image.width, image.height))
    return Failure{"ink render: no " + std::to_string(image.width) + "x" + std::to_string(image.height) +
                   " framebuffer"};
  if (frame.hasShapes()) {
    InkTarget target = InkTarget::wholeView(image.width, image.height, false);
    std::optional<InkDeviceRect> scissor = InkFrameLoop::deviceScissor(frame.dirty, scale, image.width, image.height);
    if (scissor) scissor = target.toFramebuffer(*scissor);
    if (scissor) pipeline_->draw(frame.binned, frame.uniforms, target, std::span<const InkDeviceRect>(&*scissor, 1));
  }

  // GL rows run bottom to top; the image's top to bottom.
  QOpenGLExtraFunctions* f = context_->extraFunctions();
  std::vector<uint8_t> rows(size_t(image.width) * image.height * 4);
  f->glBindBuffer(GL_PIXEL_PACK_BUFFER, 0);
  f->glPixelStorei(GL_PACK_ALIGNMENT, 4);
  f->glReadPixels(0, 0, image.width, image.height, GL_RGBA, GL_UNSIGNED_BYTE, rows.data());
  image.rgba.resize(rows.size());
  size_t stride = size_t(image.width) * 4;
  for (int y = 0; y < image.height; ++y)
    std::memcpy(image.rgba.data() + size_t(y) * stride, rows.data() + size_t(image.height - 1 - y) * stride, stride);
  return image;
}

}  // namespace zorvane
