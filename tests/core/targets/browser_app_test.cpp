#include "core/targets/browser_app.h"

#include <gtest/gtest.h>

#include <set>

namespace zorvane {
namespace {

// Every case reads back from its own distinct raw value, matched exactly; only Safari is
// outside the Chrome family; quoting doubles backslashes before escaping quotes, so no
// text can leave its string.
TEST(BrowserApp, IdentifiesEachCaseAndQuotesArguments) {
  std::set<std::string_view> rawValues;
  for (BrowserApp app : allCases<BrowserApp>()) {
    SCOPED_TRACE(rawValue(app));
    EXPECT_EQ(fromRawValue<BrowserApp>(rawValue(app)), app);
    EXPECT_EQ(isChromeFamily(app), app != BrowserApp::safari);
    rawValues.insert(rawValue(app));
  }
  EXPECT_EQ(rawValues.size(), allCases<BrowserApp>().size());
  EXPECT_EQ(fromRawValue<BrowserApp>("com.microsoft.edgemac"), BrowserApp::edge);
  for (const char* other : {"com.google.chrome", "org.mozilla.firefox", ""}) {
    EXPECT_EQ(fromRawValue<BrowserApp>(other), std::nullopt) << other;
  }
  const std::pair<std::string, std::string> quoted[] = {
      {"a\\\"b", "\"a\\\\\\\"b\""},
      {"", "\"\""},
      {"line one\nline two", "\"line one\nline two\""},
      {"\\\\", "\"\\\\\\\\\""},
      {"caf\xC3\xA9 'x'", "\"caf\xC3\xA9 'x'\""},
  };
  for (const auto& [input, expected] : quoted) {
    EXPECT_EQ(appleScriptQuoted(input), expected) << input;
  }
}

}  // namespace
}  // namespace zorvane
