// Captures one window's pixels, covered and off-screen parts included where the
// desktop allows. Composite in x11/, synthetic images in fake/. Scaling and JPEG
// encoding are in image_codec.h.
#pragma once

#include <cstdint>
#include <vector>

#include "core/base/expected.h"

namespace zorvane {

struct RGBImage {
  int width = 0, height = 0;
  std::vector<uint8_t> pixels;  // 3 bytes per pixel, top row first
};

class ScreenCapture {
 public:
  virtual ~ScreenCapture() = default;
  virtual Expected<RGBImage> capture(uint32_t windowID) = 0;
};

}  // namespace zorvane
