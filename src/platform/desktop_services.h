// The desktop services a controller drives, handed over as one bundle so that a test can
// give fakes and the product the real desktop.
#pragma once

#include <memory>

#include "platform/accessibility.h"
#include "platform/browser_scripting.h"
#include "platform/input_service.h"
#include "platform/screen_capture.h"
#include "platform/window_service.h"

namespace zorvane {

struct DesktopServices {
  WindowService& windows;
  AccessibilityService& accessibility;
  InputService& input;
  ScreenCapture& capture;
  BrowserScripting& browsers;
};

}  // namespace zorvane
