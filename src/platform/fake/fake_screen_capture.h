// FakeScreenCapture: answers with a solid image of the size a test sets, or a failure.
#pragma once

#include <map>

#include "platform/screen_capture.h"

namespace zorvane {

class FakeScreenCapture final : public ScreenCapture {
 public:
  struct Shot {
    int width = 0, height = 0;
    uint8_t red = 0, green = 0, blue = 0;
  };
  std::map<uint32_t, Shot> shots;  // windows without one fail
  int captures = 0;

  Expected<RGBImage> capture(uint32_t windowID) override {
    ++captures;
    auto it = shots.find(windowID);
    if (it == shots.end()) return Failure{"no such window"};
    const Shot& shot = it->second;
    RGBImage image{shot.width, shot.height, {}};
    image.pixels.reserve(size_t(shot.width) * shot.height * 3);
    for (int i = 0; i < shot.width * shot.height; ++i) {
      image.pixels.push_back(shot.red);
      image.pixels.push_back(shot.green);
      image.pixels.push_back(shot.blue);
    }
    return image;
  }
};

}  // namespace zorvane
