#include "core/targets/browser_app.h"

#include <gtest/gtest.h>

#include <set>

namespace zorvane {
namespace {

// Every case reads back from its raw value; identifiers are matched exactly.
TEST(BrowserApp, RawValuesIdentifyEachCase) {
  std::set<std::string_view> rawValues;
  for (BrowserApp app : allCases<BrowserApp>()) {
    SCOPED_TRACE(rawValue(app));
    EXPECT_EQ(fromRawValue<BrowserApp>(rawValue(app)), app);
    rawValues.insert(rawValue(app));
  }
  EXPECT_EQ(rawValues.size(), 7u) << "raw values must be distinct";
  EXPECT_EQ(allCases<BrowserApp>().front(), BrowserApp::chrome);
  EXPECT_EQ(allCases<BrowserApp>().back(), BrowserApp::vivaldi);

  EXPECT_EQ(fromRawValue<BrowserApp>("com.microsoft.edgemac"), BrowserApp::edge);
  EXPECT_EQ(appName(BrowserApp::edge), "Microsoft Edge");
  EXPECT_EQ(fromRawValue<BrowserApp>("com.google.chrome"), std::nullopt);
  EXPECT_EQ(fromRawValue<BrowserApp>("org.mozilla.firefox"), std::nullopt);
  EXPECT_EQ(fromRawValue<BrowserApp>(""), std::nullopt);
}

// Safari is the only browser outside the Chrome family.
TEST(BrowserApp, OnlySafariIsOutsideTheChromeFamily) {
  for (BrowserApp app : allCases<BrowserApp>()) {
    SCOPED_TRACE(rawValue(app));
    EXPECT_EQ(isChromeFamily(app), app != BrowserApp::safari);
  }
}

// The two script dialects, with the argument quoted.
TEST(BrowserApp, ScriptsUseEachDialect) {
  EXPECT_EQ(evalScript(BrowserApp::safari, "say(\"hi\")"),
            "tell application \"Safari\" to do JavaScript \"say(\\\"hi\\\")\" in current tab of "
            "front window");
  EXPECT_EQ(evalScript(BrowserApp::brave, "document.title"),
            "tell application \"Brave Browser\" to execute active tab of front window javascript "
            "\"document.title\"");
  EXPECT_EQ(navigateScript(BrowserApp::safari, "https://a.org/"),
            "tell application \"Safari\" to set URL of current tab of front window to "
            "\"https://a.org/\"");
  EXPECT_EQ(navigateScript(BrowserApp::arc, "https://a.org/"),
            "tell application \"Arc\" to set URL of active tab of front window to "
            "\"https://a.org/\"");
  EXPECT_EQ(frontTabScript(BrowserApp::safari),
            "tell application \"Safari\" to tell current tab of front window to return (URL as "
            "text) & linefeed & (name as text)");
  EXPECT_EQ(frontTabScript(BrowserApp::chrome),
            "tell application \"Google Chrome\" to tell active tab of front window to return "
            "(URL as text) & linefeed & (title as text)");
}

// Backslashes are doubled before quotes are escaped, and nothing else changes.
TEST(BrowserApp, AppleScriptQuotedEscapesBackslashThenQuote) {
  const std::pair<std::string, std::string> cases[] = {
      {"a\\\"b", "\"a\\\\\\\"b\""},  // a \ " b  ->  "a \ \ \ " b"
      {"", "\"\""},
      {"line one\nline two", "\"line one\nline two\""},
      {"\\\\", "\"\\\\\\\\\""},
      {"caf\xC3\xA9 'x'", "\"caf\xC3\xA9 'x'\""},
  };
  for (const auto& [input, expected] : cases) {
    SCOPED_TRACE(input);
    EXPECT_EQ(appleScriptQuoted(input), expected);
  }
}

}  // namespace
}  // namespace zorvane
