#include "platform/image_codec.h"

#include <turbojpeg.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

namespace zorvane::ImageCodec {

namespace {

std::string sizeText(int width, int height) { return std::to_string(width) + "x" + std::to_string(height); }

// Why the image can't be used, or "" when it can.
std::string imageProblem(const RGBImage& image) {
  if (image.width <= 0 || image.height <= 0) return "the image is empty (" + sizeText(image.width, image.height) + ")";
  if (image.width > kMaxSide || image.height > kMaxSide)
    return "the image is too large (" + sizeText(image.width, image.height) + ")";
  size_t expected = static_cast<size_t>(image.width) * image.height * 3;
  if (image.pixels.size() != expected)
    return "the image has " + std::to_string(image.pixels.size()) + " bytes of pixels, " +
           sizeText(image.width, image.height) + " needs " + std::to_string(expected);
  return "";
}

// The source pixels one target pixel draws from, with their weights (summing to 1).
struct Taps {
  int first = 0;
  std::vector<float> weights;
};

std::vector<Taps> tapsForAxis(int source, int target) {
  std::vector<Taps> taps(target);
  const double ratio = static_cast<double>(source) / target;
  for (int i = 0; i < target; ++i) {
    Taps& tap = taps[i];
    if (target < source) {
      // Area averaging: the target pixel covers [begin, end) in source pixels.
      double begin = i * ratio, end = (i + 1) * ratio;
      int first = static_cast<int>(std::floor(begin));
      int last = std::min(source - 1, static_cast<int>(std::ceil(end)) - 1);
      tap.first = first;
      for (int s = first; s <= last; ++s) {
        double covered = std::min(end, s + 1.0) - std::max(begin, static_cast<double>(s));
        tap.weights.push_back(static_cast<float>(covered / ratio));
      }
    } else {
      // Linear interpolation between the centres around the target pixel's centre.
      double centre = (i + 0.5) * ratio - 0.5;
      centre = std::clamp(centre, 0.0, static_cast<double>(source - 1));
      int left = std::min(static_cast<int>(std::floor(centre)), source - 1);
      double fraction = centre - left;
      tap.first = left;
      tap.weights.push_back(static_cast<float>(1.0 - fraction));
      if (left + 1 < source) tap.weights.push_back(static_cast<float>(fraction));
    }
  }
  return taps;
}

uint8_t toByte(float value) { return static_cast<uint8_t>(std::clamp(std::lround(value), 0l, 255l)); }

}  // namespace

Expected<RGBImage> scale(const RGBImage& image, int width, int height) {
  if (std::string problem = imageProblem(image); !problem.empty()) return Failure{"scale: " + problem};
  if (width <= 0 || height <= 0 || width > kMaxSide || height > kMaxSide)
    return Failure{"scale: the target size " + sizeText(width, height) + " is not in 1..." +
                   std::to_string(kMaxSide) + " on each side"};
  if (width == image.width && height == image.height) return image;

  // Rows first, into a float buffer of height(source) x width(target), then columns.
  std::vector<Taps> across = tapsForAxis(image.width, width);
  std::vector<Taps> down = tapsForAxis(image.height, height);
  std::vector<float> rows(static_cast<size_t>(image.height) * width * 3);
  for (int y = 0; y < image.height; ++y) {
    const uint8_t* source = image.pixels.data() + static_cast<size_t>(y) * image.width * 3;
    float* target = rows.data() + static_cast<size_t>(y) * width * 3;
    for (int x = 0; x < width; ++x) {
      const Taps& tap = across[x];
      float r = 0, g = 0, b = 0;
      const uint8_t* p = source + static_cast<size_t>(tap.first) * 3;
      for (float weight : tap.weights) {
        r += weight * p[0];
        g += weight * p[1];
        b += weight * p[2];
        p += 3;
      }
      target[x * 3] = r;
      target[x * 3 + 1] = g;
      target[x * 3 + 2] = b;
    }
  }

  RGBImage out{width, height, std::vector<uint8_t>(static_cast<size_t>(width) * height * 3)};
  std::vector<float> line(static_cast<size_t>(width) * 3);
  const size_t stride = static_cast<size_t>(width) * 3;
  for (int y = 0; y < height; ++y) {
    const Taps& tap = down[y];
    std::fill(line.begin(), line.end(), 0.0f);
    const float* source = rows.data() + static_cast<size_t>(tap.first) * stride;
    for (float weight : tap.weights) {
      for (size_t i = 0; i < stride; ++i) line[i] += weight * source[i];
      source += stride;
    }
    uint8_t* target = out.pixels.data() + y * stride;
    for (size_t i = 0; i < stride; ++i) target[i] = toByte(line[i]);
  }
  return out;
}

Expected<std::string> encodeJPEG(const RGBImage& image, int quality) {
  if (std::string problem = imageProblem(image); !problem.empty()) return Failure{"JPEG: " + problem};
  if (quality < 0 || quality > 100) return Failure{"JPEG: quality " + std::to_string(quality) + " is not in 0...100"};
  std::unique_ptr<void, int (*)(tjhandle)> encoder(tjInitCompress(), tjDestroy);
  if (!encoder) return Failure{"JPEG: the encoder could not start: " + std::string(tjGetErrorStr2(nullptr))};
  unsigned char* bytes = nullptr;
  unsigned long size = 0;
  int status = tjCompress2(encoder.get(), image.pixels.data(), image.width, image.width * 3, image.height, TJPF_RGB,
                           &bytes, &size, TJSAMP_420, std::max(quality, 1), 0);
  std::unique_ptr<unsigned char, void (*)(unsigned char*)> owned(bytes, tjFree);
  if (status != 0) return Failure{"JPEG: encoding failed: " + std::string(tjGetErrorStr2(encoder.get()))};
  return std::string(reinterpret_cast<const char*>(bytes), size);
}

}  // namespace zorvane::ImageCodec
