// DevToolsBrowserScripting: the front tab of one window of a Chromium-family browser,
// scripted over the DevTools protocol on loopback.
//
// The browser is found from the window's process (see devtools_port.h); it must have been
// started with a debugging port, and the failure says how to do that when it wasn't. The
// port is used only while the browser process itself holds it.
//
// Which tab: a browser process shows all its windows through one port, and its list of
// pages doesn't say which X11 window shows which. The only tie the protocol offers is
// Browser.getWindowForTarget: each page's browser window id and that window's bounds.
// So a page shows in the X11 window when
//   - its browser window's bounds are the X11 window's client area (Chromium gives them
//     in its own units, the X11 pixels divided by its scale factor, so one scale from
//     1 to 4 must fit all four numbers), and
//   - it is that browser window's front tab (the first of the window's pages in
//     /json/list, which lists the most recently active first) and its title is the X11
//     window's title, or the start of it followed by " - " (Chromium titles its window
//     "<tab title> - Chromium").
// Exactly one browser window must fit. None: the call waits a moment and looks again
// with the X11 window read afresh (Chromium retitles its window about 200 ms after the
// page's title changed), then fails. Several (same place, size and title): it fails at
// once. It never falls back to another window's page.
//
//   - frontTab: "URL\ntitle" of that page.
//   - evaluate: Runtime.evaluate in that page, by value, awaiting a promise. A string
//     result comes back as it is; numbers, booleans, arrays and objects as JSON text;
//     undefined and null as "(no result)". A thrown exception is a failure whose text is
//     the page's own description of it ("Error: boom\n    at <anonymous>:1:7").
//   - navigate: Page.navigate; the browser's errorText ("net::ERR_...") is a failure.
// Each call opens its own connections and closes them; nothing is kept between calls.
//
// Time: finding the page is given `listTimeout`; a script or navigation gets
// `scriptTimeout` in all, after which the call fails saying the page didn't answer (a
// page stuck in a loop or a dialog). Blocking; safe to use from one thread at a time.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/browser_scripting.h"

namespace zorvane {

class DevToolsBrowserScripting final : public BrowserScripting {
 public:
  struct Options {
    std::chrono::milliseconds listTimeout{3000};
    std::chrono::milliseconds scriptTimeout{10000};
    std::string procRoot = "/proc";
    // How long a window whose title doesn't fit any page yet is looked at again.
    std::chrono::milliseconds retitleWait{1000};
  };

  DevToolsBrowserScripting();
  explicit DevToolsBrowserScripting(Options options);

  Expected<std::string> frontTab(const BrowserWindow& window) override;
  Expected<std::string> evaluate(const BrowserWindow& window, const std::string& javaScript) override;
  Expected<void> navigate(const BrowserWindow& window, const std::string& url) override;

 private:
  Options options_;
};

// One page target as the browser describes it, with the browser window it shows in.
struct DevToolsPage {
  std::string id, url, title;
  int64_t browserWindowID = 0;
  Rect bounds;  // the browser window's bounds, in the browser's units
};

// Which of `pages` (most recently active first) is the front tab of the X11 window with
// this client area and title, by the rules above.
struct DevToolsPageMatch {
  enum class Kind { found, none, several };
  Kind kind = Kind::none;
  size_t index = 0;  // into `pages`, when found
};
DevToolsPageMatch matchWindowPage(const Rect& frame, const std::string& title, const std::vector<DevToolsPage>& pages);

}  // namespace zorvane
