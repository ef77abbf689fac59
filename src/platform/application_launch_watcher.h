// ApplicationLaunchWatcher: tells when an application starts. X11ApplicationLaunchWatcher
// in x11/ (new client windows of the window manager), FakeApplicationLaunchWatcher in
// fake/.
//
//   watcher->onLaunch = [this](const ApplicationLaunch& launch) { appLaunched(launch); };
//   if (auto started = watcher->start(); !started) Log::info(started.error());
//
// A launch is reported once per new process, when its first window appears; what was
// running when `start` was called is not reported. Processes that never show a window
// are not seen. `onLaunch` runs on the main queue, never after `stop()` or the object's
// destruction.
#pragma once

#include <cstdint>
#include <functional>

#include "core/base/expected.h"
#include "platform/window_service.h"

namespace zorvane {

struct ApplicationLaunch {
  int32_t pid = 0;               // 0 when the desktop can't tell the process
  ApplicationInfo application;   // bundle id and name, as WindowService::application gives them
  uint32_t windowID = 0;         // the window that made it known
};

class ApplicationLaunchWatcher {
 public:
  virtual ~ApplicationLaunchWatcher() = default;

  std::function<void(const ApplicationLaunch&)> onLaunch;

  // Takes what runs now as known and starts watching. Fails when the desktop can't be
  // watched. A second call while watching changes nothing.
  [[nodiscard]] virtual Expected<void> start() = 0;
  virtual void stop() = 0;
};

}  // namespace zorvane
