// FakeWindowService: an in-memory desktop for tests. Tests fill `windowList` (front to
// back; off-screen windows with onScreen false) and `applications` by pid.
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
  std::optional<WindowInfo> window(uint32_t windowID) override {
    for (const WindowInfo& w : windowList)
      if (w.windowID == windowID) return w;
    return std::nullopt;
  }
  bool activate(uint32_t windowID) override {
    activated.push_back(windowID);
    return window(windowID).has_value();
  }
  std::vector<uint32_t> activated;  // every activate call, in order
  std::optional<uint32_t> active;   // what activeWindow answers
  std::optional<uint32_t> activeWindow() override { return active; }
};

}  // namespace zorvane
