// The shader of the ink renderer evaluated on the processor, formula for formula and in
// 32-bit floats as the GPU evaluates it: the golden reference for the GPU, and a way to
// draw goo with no display.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "core/ink/ink_pipeline.h"

namespace zorvane {

struct InkImage {
  int width = 0, height = 0;
  std::vector<uint8_t> rgba;  // premultiplied, top row first, 4 bytes per pixel
};

namespace InkReference {

// The premultiplied colour of the pixel whose centre is at (px, py) in device pixels
// (top-left origin), from the binned arrays and the uniform block.
std::array<float, 4> shade(const InkPipeline::Binned& binned, const InkUniforms& uniforms, float px, float py);

// The whole view: width × scale by height × scale pixels, rounded up.
InkImage render(const GooScene& scene, Size viewSize, double scale, double time, double tileSize = 0);

}  // namespace InkReference

}  // namespace zorvane
