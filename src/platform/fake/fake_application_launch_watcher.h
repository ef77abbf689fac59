// FakeApplicationLaunchWatcher: launches a test makes happen, delivered at once.
#pragma once

#include "platform/application_launch_watcher.h"

namespace zorvane {

class FakeApplicationLaunchWatcher final : public ApplicationLaunchWatcher {
 public:
  bool watching = false;

  Expected<void> start() override {
    watching = true;
    return ok();
  }
  void stop() override { watching = false; }

  // An application starts; reported only while watching.
  void launch(const ApplicationLaunch& launch) {
    if (watching && onLaunch) onLaunch(launch);
  }
};

}  // namespace zorvane
