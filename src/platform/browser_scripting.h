// Scripting the front tab of a browser window: the road to page contents that the
// accessibility tree doesn't give. The DevTools protocol on loopback in x11/ (for the
// Chromium family), scripted answers in fake/.
#pragma once

#include <cstdint>
#include <string>

#include "core/base/expected.h"
#include "core/targets/browser_app.h"

namespace zorvane {

struct BrowserWindow {
  uint32_t windowID = 0;
  int32_t pid = 0;
  BrowserApp app = BrowserApp::chromium;
};

class BrowserScripting {
 public:
  virtual ~BrowserScripting() = default;
  // Two lines: the front tab's URL, then its title.
  virtual Expected<std::string> frontTab(const BrowserWindow& window) = 0;
  // Evaluates JavaScript in the front tab; the result's string form, "(no result)" for
  // none. A failure's text is the browser's own message.
  virtual Expected<std::string> evaluate(const BrowserWindow& window, const std::string& javaScript) = 0;
  virtual Expected<void> navigate(const BrowserWindow& window, const std::string& url) = 0;
};

}  // namespace zorvane
