// FakeDesktop: every fake desktop service in one bundle, for controller tests.
#pragma once

#include "platform/desktop_services.h"
#include "platform/fake/fake_accessibility.h"
#include "platform/fake/fake_browser_scripting.h"
#include "platform/fake/fake_input.h"
#include "platform/fake/fake_screen_capture.h"
#include "platform/fake/fake_window_service.h"

namespace zorvane {

struct FakeDesktop {
  FakeWindowService windows;
  FakeAccessibility accessibility;
  FakeInput input;
  FakeScreenCapture capture;
  FakeBrowserScripting browsers;
  DesktopServices services{windows, accessibility, input, capture, browsers};
};

}  // namespace zorvane
