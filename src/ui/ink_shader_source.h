// The ink shader as GLSL text: one full-screen triangle, and a fragment stage that
// evaluates the binned distance field of a GooScene and shades it as dark liquid.
//
// The same text compiles as `#version 330 core` (OpenGL 3.3 and later, macOS's 4.1) and
// as `#version 300 es` (GLES 3.0 and later); only the first lines differ. It reads:
//   - `uPrims`   RGBA32F texture, 3 texels per InkPrim (a, b, c), 1024 texels a row;
//   - `uRanges`  RG32UI texture, one (offset, count) per tile, row by row;
//   - `uIndices` R32UI texture, primitive indices;
//   - the std140 uniform block `InkBlock`, laid out as InkUniforms (80 bytes);
//   - `uTarget`: where the view lies in the framebuffer (GL x of its left edge, GL y
//     of its top edge, and -1, or 1 when its rows run down GL's y), so that
//     gl_FragCoord becomes a point in the view.
// Pixel centres fall at +0.5 device pixels, as in InkReference.
#pragma once

#include <string>

namespace zorvane::InkShaderSource {

enum class Dialect { desktop330, gles300 };

std::string vertex(Dialect dialect);
std::string fragment(Dialect dialect);

}  // namespace zorvane::InkShaderSource
