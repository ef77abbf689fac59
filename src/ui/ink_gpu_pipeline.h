// InkGpuPipeline: the ink shader compiled for one OpenGL context, with the textures
// and the uniform buffer it reads.
//
// One pipeline per context, made on first use by `forCurrentContext()` and dropped when
// the context is destroyed. If the program can't be built, "ink shader failed: " and
// the compiler's or linker's message are logged once for the process, the context is
// remembered as failed (no retry each frame) and callers draw nothing.
//
// `draw` uploads the three arrays (prims RGBA32F, ranges RG32UI, indices R32UI, 1024
// texels a row) and the 80-byte uniform block, then draws one full-screen triangle per
// scissor rectangle. Textures only grow: a frame that fits in what earlier frames
// needed allocates nothing, on the GPU or here. `allocations()` counts the times a
// texture or the uniform buffer had to be (re)made.
//
// The caller must have the pipeline's context current and the target framebuffer bound.
// `draw` changes the viewport, program, vertex array, textures of units 0-2, the uniform buffer
// binding at index 0, unpack alignment/row length, blending and scissor state, and
// leaves them so: a caller inside another renderer saves and restores what it needs.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "core/ink/ink_pipeline.h"
#include "ui/ink_frame_loop.h"

class QOpenGLContext;

namespace zorvane {

// Where a view lies in the bound framebuffer. GL counts rows from the bottom; the view
// counts device pixels from its top-left corner.
struct InkTarget {
  int width = 0, height = 0;  // the framebuffer, device pixels
  float viewX = 0;            // GL x of the view's left edge
  float viewTop = 0;          // GL y of the view's top edge
  // The view's y grows with GL's y: a target whose first row is the top of the picture
  // (such as a texture that is later sampled upside down). Normally false.
  bool rowsDown = false;
  // Composite over what is there (ONE, ONE_MINUS_SRC_ALPHA), or write each pixel as is.
  bool blend = false;

  // A target that is the view itself, as an offscreen framebuffer is.
  static InkTarget wholeView(int width, int height, bool blend) {
    return InkTarget{width, height, 0, float(height), false, blend};
  }
  // A rectangle of the view (device pixels, top-left origin) in GL framebuffer
  // coordinates, clipped to the framebuffer; nothing when it falls outside.
  std::optional<InkDeviceRect> toFramebuffer(const InkDeviceRect& inView) const;
};

class InkGpuPipeline {
 public:
  ~InkGpuPipeline();
  InkGpuPipeline(const InkGpuPipeline&) = delete;
  InkGpuPipeline& operator=(const InkGpuPipeline&) = delete;

  // The pipeline of the current context, built now if this is its first use; null when
  // there is no current context or the program can't be built.
  static InkGpuPipeline* forCurrentContext();

  // Draws the binned scene once per scissor rectangle (GL framebuffer coordinates, see
  // InkTarget::toFramebuffer), with the viewport set to the whole framebuffer. Returns
  // the number of draw calls issued.
  int draw(const InkPipeline::Binned& binned, const InkUniforms& uniforms, const InkTarget& target,
           std::span<const InkDeviceRect> scissors);

  uint64_t allocations() const { return allocations_; }

  // Why the last pipeline that failed could not be built ("" if none has failed).
  static std::string lastFailure();

  // Test hook: builds later pipelines from this fragment source instead of the real one
  // (nullopt restores it), and lets the next failure be logged again.
  static void setFragmentSourceForTesting(std::optional<std::string> source);

 private:
  struct ArrayTexture {
    unsigned id = 0;
    int rows = 0;
    unsigned internalFormat = 0, format = 0, type = 0;
  };

  explicit InkGpuPipeline(QOpenGLContext* context);
  std::optional<std::string> build();  // the error text on failure
  void upload(ArrayTexture& texture, const void* data, size_t texels, size_t bytesPerTexel);
  void release();

  QOpenGLContext* context_;
  unsigned program_ = 0, vertexArray_ = 0, uniformBuffer_ = 0;
  int targetLocation_ = -1;
  ArrayTexture prims_, ranges_, indices_;
  uint64_t allocations_ = 0;
};

}  // namespace zorvane
