// DevToolsBrowserScripting: the front tab of a Chromium-family browser, scripted over the
// DevTools protocol on loopback.
//
// The browser is found from the window's process (see devtools_port.h); it must have been
// started with a debugging port, and the failure says how to do that when it wasn't.
//   - frontTab: GET /json/list, the first "page" target (the browser lists the most
//     recently active first): "URL\ntitle".
//   - evaluate: Runtime.evaluate in that page, by value, awaiting a promise. A string
//     result comes back as it is; numbers, booleans, arrays and objects as JSON text;
//     undefined and null as "(no result)". A thrown exception is a failure whose text is
//     the page's own description of it ("Error: boom\n    at <anonymous>:1:7").
//   - navigate: Page.navigate; the browser's errorText ("net::ERR_...") is a failure.
// Each call opens its own connections and closes them; nothing is kept between calls.
//
// Time: the list is asked for within `listTimeout`; a script or navigation gets
// `scriptTimeout` in all, after which the call fails saying the page didn't answer (a
// page stuck in a loop or a dialog). Blocking; safe to use from one thread at a time.
#pragma once

#include <chrono>
#include <string>

#include "platform/browser_scripting.h"

namespace zorvane {

class DevToolsBrowserScripting final : public BrowserScripting {
 public:
  struct Options {
    std::chrono::milliseconds listTimeout{3000};
    std::chrono::milliseconds scriptTimeout{10000};
    std::string procRoot = "/proc";
  };

  DevToolsBrowserScripting();
  explicit DevToolsBrowserScripting(Options options);

  Expected<std::string> frontTab(const BrowserWindow& window) override;
  Expected<std::string> evaluate(const BrowserWindow& window, const std::string& javaScript) override;
  Expected<void> navigate(const BrowserWindow& window, const std::string& url) override;

 private:
  Options options_;
};

}  // namespace zorvane
