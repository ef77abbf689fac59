// FakeWindowService: an in-memory desktop for tests. Tests fill `windowList` (front to
// back) and `applications` by pid.
#pragma once

#include <map>

#include "platform/window_service.h"

namespace zorvane {

class FakeWindowService final : public WindowService {
 public:
  std::vector<WindowInfo> windowList;
  std::map<int32_t, ApplicationInfo> applications;

  std::vector<WindowInfo> windows() override { return windowList; }
  std::optional<ApplicationInfo> application(int32_t pid) override {
    auto it = applications.find(pid);
    if (it == applications.end()) return std::nullopt;
    return it->second;
  }
};

}  // namespace zorvane
