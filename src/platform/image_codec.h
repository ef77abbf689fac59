// ImageCodec: what a screenshot needs after the capture: scaling an RGB image to a
// given size, and encoding it as JPEG. Needs no display.
//
// Scaling treats each axis on its own: an axis that shrinks averages the source pixels
// each target pixel covers (area averaging, weighted by the covered fraction), an axis
// that grows interpolates linearly between the two nearest source pixel centres. So a
// block of one colour keeps that colour exactly, and thin lines fade instead of
// vanishing when shrunk.
//
//   auto scaled = ImageCodec::scale(image, 1568, 784);
//   if (!scaled) return Failure{scaled.error()};
//   auto jpeg = ImageCodec::encodeJPEG(*scaled, 80);
#pragma once

#include <string>

#include "core/base/expected.h"
#include "platform/screen_capture.h"

namespace zorvane::ImageCodec {

// The largest side either function accepts, in pixels.
inline constexpr int kMaxSide = 32768;

// `image` scaled to width x height. Fails for an empty or malformed image (pixels not
// 3 x width x height bytes) and for a target side that is not in 1...kMaxSide.
[[nodiscard]] Expected<RGBImage> scale(const RGBImage& image, int width, int height);

// JPEG bytes (baseline, 4:2:0) at `quality` 0-100 (0 is taken as 1, the lowest the
// encoder knows). Fails for an empty or malformed image and a quality outside 0-100.
[[nodiscard]] Expected<std::string> encodeJPEG(const RGBImage& image, int quality);

}  // namespace zorvane::ImageCodec
