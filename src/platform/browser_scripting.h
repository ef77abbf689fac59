// Scripting the front tab of a browser window: the road to page contents that the
// accessibility tree doesn't give. The DevTools protocol on loopback in linux/ (for the
// Chromium family), scripted answers in fake/.
//
// One browser process shows many windows, and an agent may drive only the one it was
// given. So every call names the window as the window manager shows it (its client
// area and title), and an implementation acts only on a page it can prove shows in that
// window; when it can't, the call fails and no other window's page is touched.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "core/base/expected.h"
#include "core/geometry/geometry.h"
#include "core/targets/browser_app.h"
#include "platform/window_service.h"

namespace zorvane {

struct BrowserWindow {
  uint32_t windowID = 0;
  int32_t pid = 0;
  BrowserApp app = BrowserApp::chromium;
  // The window's client area (screen points, top-left origin) and title, as the window
  // manager shows them now.
  Rect frame;
  std::string title;
  // Reads frame and title afresh into this record; false when the window is gone. A
  // browser retitles its window a moment after the page's title changed, so matching
  // the two may take a second look. Empty: the record is all there is.
  std::function<bool(BrowserWindow&)> reread;
};

// The record of window `id` of `pid`, with the frame and title given, that reads them
// afresh from `windows` (which must outlive it) when asked.
inline BrowserWindow browserWindowFrom(WindowService& windows, uint32_t id, int32_t pid, BrowserApp app, Rect frame,
                                       std::string title) {
  BrowserWindow result{id, pid, app, frame, std::move(title), {}};
  result.reread = [&windows, id](BrowserWindow& again) {
    auto now = windows.window(id);
    if (!now) return false;
    again.frame = Rect{now->x, now->y, now->width, now->height};
    again.title = now->title;
    return true;
  };
  return result;
}

class BrowserScripting {
 public:
  virtual ~BrowserScripting() = default;
  // Two lines: the window's front tab's URL, then its title.
  virtual Expected<std::string> frontTab(const BrowserWindow& window) = 0;
  // Evaluates JavaScript in the window's front tab; the result's string form, "(no
  // result)" for none. A failure's text is the browser's own message, or why no tab of
  // this window could be told.
  virtual Expected<std::string> evaluate(const BrowserWindow& window, const std::string& javaScript) = 0;
  virtual Expected<void> navigate(const BrowserWindow& window, const std::string& url) = 0;
};

}  // namespace zorvane
