// WindowControl: one window of another application, driven for an agent's tool call.
// Reads it through a screenshot (image pixels are window points) or its accessibility
// tree (one line per element, with a ref that can be pressed), drives it with synthetic
// input, and scripts a browser's front tab. Holds no state between calls: each call
// asks the desktop afresh.
//
// The agent may reach this window only. Synthetic input goes wherever the pointer or
// the keyboard focus is, not to a window, so:
//   - click and scroll take window points inside the window's frame and refuse others;
//     the point must show this window: a click first brings the window forward, then
//     waits (a moment, bounded) until no window in front of it covers the point, and
//     refuses if one still does (a window kept on top); scroll, which doesn't bring the
//     window forward, refuses a covered point at once.
//   - type_text and press_key send keys only once the window was activated and reads
//     back as the front one (see readsAsFront in the .cpp), else refuse.
//   - browser tools act only on the page the browser shows in this window (see
//     BrowserWindow); the scripting side refuses when it can't tell which that is.
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
  enum class PointView { shows, covered, hidden };

  // Asks the desktop to activate the window; whether it did.
  bool bringForward();
  // Throws unless the window reads back as the front one within a short wait.
  void requireActiveForKeys();
  // What a screen point shows now: this window, another one in front of it, or nothing
  // of it (this window isn't on screen).
  PointView pointView(Point at);
  bool readsAsFront();
  // The screen point of a window point; throws, saying nothing was `done`, for a point
  // outside the window's frame or off the screen.
  Point screenPoint(Point inWindow, const Info& window, const std::string& done);
  BrowserWindow browserWindow(BrowserApp browser);

  DesktopServices& desktop_;
  Input::Sleeper sleep_;
  Input input_;
};

}  // namespace zorvane
