// FakeWindowService: an in-memory desktop for tests. Tests fill `windowList` (front to
// back; off-screen windows with onScreen false) and `applications` by pid, and put
// windows in full screen through `fullScreen`. Every request is recorded; moveResize
// changes the window's frame in `windowList`, so a later window(id) sees it.
#pragma once

#include <map>
#include <set>

#include "platform/window_service.h"

namespace zorvane {

class FakeWindowService final : public WindowService {
 public:
  struct MoveResize {
    uint32_t windowID = 0;
    double x = 0, y = 0, width = 0, height = 0;
    friend bool operator==(const MoveResize&, const MoveResize&) = default;
  };

  std::vector<WindowInfo> windowList;
  std::map<int32_t, ApplicationInfo> applications;

  std::vector<WindowInfo> windows() override { return windowList; }
  std::optional<ApplicationInfo> application(int32_t pid) override {
    auto it = applications.find(pid);
    if (it == applications.end()) return std::nullopt;
    return it->second;
  }
  std::optional<WindowInfo> window(uint32_t windowID) override {
    if (WindowInfo* w = find(windowID)) return *w;
    return std::nullopt;
  }
  bool activate(uint32_t windowID) override {
    activated.push_back(windowID);
    return window(windowID).has_value();
  }
  std::vector<uint32_t> activated;  // every activate call, in order
  std::optional<uint32_t> active;   // what activeWindow answers
  std::optional<uint32_t> activeWindow() override { return active; }

  std::set<uint32_t> fullScreen;  // the windows in full screen now
  std::optional<bool> isFullScreen(uint32_t windowID) override {
    if (!find(windowID)) return std::nullopt;
    return fullScreen.contains(windowID);
  }
  std::vector<uint32_t> leftFullScreen;  // every leaveFullScreen call, in order
  bool leaveFullScreen(uint32_t windowID) override {
    leftFullScreen.push_back(windowID);
    if (!find(windowID)) return false;
    fullScreen.erase(windowID);
    return true;
  }
  std::vector<MoveResize> moveResizes;  // every moveResize call, in order
  bool moveResize(uint32_t windowID, double x, double y, double width, double height) override {
    moveResizes.push_back({windowID, x, y, width, height});
    WindowInfo* w = find(windowID);
    if (!w) return false;
    w->x = x;
    w->y = y;
    w->width = width;
    w->height = height;
    return true;
  }

 private:
  WindowInfo* find(uint32_t windowID) {
    for (WindowInfo& w : windowList)
      if (w.windowID == windowID) return &w;
    return nullptr;
  }
};

}  // namespace zorvane
