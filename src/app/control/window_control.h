// WindowControl: one window of another application, driven for an agent's tool call.
// Reads it through a screenshot (image pixels are window points) or its accessibility
// tree (one line per element, with a ref that can be pressed), drives it with synthetic
// input, and scripts a browser's front tab. Holds no state between calls: each call
// asks the desktop afresh.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "app/control/input.h"
#include "core/base/json_value.h"
#include "core/mcp/tool_spec.h"
#include "core/targets/browser_app.h"
#include "platform/desktop_services.h"

namespace zorvane {

class WindowControl {
 public:
  struct Info {
    Rect frame;  // screen points, top-left origin
    int32_t pid = 0;
    std::string title;
    bool onScreen = false;
  };

  WindowControl(uint32_t windowID, std::string bundleID, std::optional<int32_t> pidHint, DesktopServices& desktop,
                Input::Sleeper sleeper = Input::realSleep);

  // The roles printed even without label or value.
  static const std::set<std::string>& actionable();

  std::vector<MCPContent> call(const std::string& tool, const JSONObject& args, std::optional<BrowserApp> browser);

  Info info();
  std::vector<MCPContent> screenshot();
  std::string uiTree(int64_t maxDepth);
  std::shared_ptr<AccessibleElement> element(const std::string& ref);
  std::shared_ptr<AccessibleElement> axWindow(const Info& info);
  std::string js(BrowserApp browser, const std::string& code);

  uint32_t windowID;
  std::string bundleID;
  std::optional<int32_t> pidHint;

 private:
  void bringForward();
  BrowserWindow browserWindow(BrowserApp browser);

  DesktopServices& desktop_;
  Input::Sleeper sleep_;
  Input input_;
};

}  // namespace zorvane
