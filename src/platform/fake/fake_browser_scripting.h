// FakeBrowserScripting: a browser whose front tab, script results and failures a test
// scripts; it records what it was asked.
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

  Expected<std::string> frontTab(const BrowserWindow&) override {
    if (!frontTabAnswer) return Failure{"no front window"};
    return *frontTabAnswer;
  }
  Expected<std::string> evaluate(const BrowserWindow&, const std::string& javaScript) override {
    evaluated.push_back(javaScript);
    if (evaluateFailure) return Failure{*evaluateFailure};
    return evaluateAnswer;
  }
  Expected<void> navigate(const BrowserWindow&, const std::string& url) override {
    navigated.push_back(url);
    if (navigateFailure) return Failure{*navigateFailure};
    return ok();
  }
};

}  // namespace zorvane
