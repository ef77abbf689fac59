// FakeBrowserScripting: a browser whose front tab, script results and failures a test
// scripts; it records what it was asked, and for which window.
#pragma once

#include <optional>
#include <vector>

#include "platform/browser_scripting.h"

namespace zorvane {

class FakeBrowserScripting final : public BrowserScripting {
 public:
  std::optional<std::string> frontTabAnswer;  // nothing: the front-tab script fails
  std::string evaluateAnswer = "(no result)";
  std::optional<std::string> evaluateFailure;
  std::optional<std::string> navigateFailure;
  std::vector<std::string> evaluated, navigated;
  std::vector<BrowserWindow> windows;  // the window of every call, in order

  Expected<std::string> frontTab(const BrowserWindow& window) override {
    windows.push_back(window);
    if (!frontTabAnswer) return Failure{"no front window"};
    return *frontTabAnswer;
  }
  Expected<std::string> evaluate(const BrowserWindow& window, const std::string& javaScript) override {
    windows.push_back(window);
    evaluated.push_back(javaScript);
    if (evaluateFailure) return Failure{*evaluateFailure};
    return evaluateAnswer;
  }
  Expected<void> navigate(const BrowserWindow& window, const std::string& url) override {
    windows.push_back(window);
    navigated.push_back(url);
    if (navigateFailure) return Failure{*navigateFailure};
    return ok();
  }
};

}  // namespace zorvane
