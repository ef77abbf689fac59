#include "core/targets/browser_app.h"

namespace zorvane {

namespace {

struct BrowserInfo {
  BrowserApp app;
  std::string_view rawValue;
  std::string_view appName;
};

}  // namespace

// Indexed by the enumeration's value.
static constexpr std::array<BrowserInfo, 7> kBrowsers = {{
    {BrowserApp::chrome, "com.google.Chrome", "Google Chrome"},
    {BrowserApp::safari, "com.apple.Safari", "Safari"},
    {BrowserApp::arc, "company.thebrowser.Browser", "Arc"},
    {BrowserApp::brave, "com.brave.Browser", "Brave Browser"},
    {BrowserApp::edge, "com.microsoft.edgemac", "Microsoft Edge"},
    {BrowserApp::chromium, "org.chromium.Chromium", "Chromium"},
    {BrowserApp::vivaldi, "com.vivaldi.Vivaldi", "Vivaldi"},
}};
static_assert(
    [] {
      for (size_t i = 0; i < kBrowsers.size(); ++i) {
        if (static_cast<size_t>(kBrowsers[i].app) != i) return false;
      }
      return true;
    }(),
    "kBrowsers rows must follow the order of BrowserApp");

static constexpr std::array<BrowserApp, kBrowsers.size()> kAllBrowserApps = [] {
  std::array<BrowserApp, kBrowsers.size()> apps{};
  for (size_t i = 0; i < kBrowsers.size(); ++i) apps[i] = kBrowsers[i].app;
  return apps;
}();

static const BrowserInfo& info(BrowserApp app) {
  size_t index = static_cast<size_t>(app);
  // Only a value cast from outside the enumeration lands here; fall back to the first row.
  if (index >= kBrowsers.size()) return kBrowsers[0];
  return kBrowsers[index];
}

// The pieces of the scripts; A is the application name and Q a quoted argument.
static constexpr std::string_view kTellApplication = "tell application \"";
static constexpr std::string_view kDoJavaScript = "\" to do JavaScript ";
static constexpr std::string_view kInCurrentTab = " in current tab of front window";
static constexpr std::string_view kExecuteInActiveTab =
    "\" to execute active tab of front window javascript ";
static constexpr std::string_view kSetURLOf = "\" to set URL of ";
static constexpr std::string_view kTabOfFrontWindowTo = " tab of front window to ";
static constexpr std::string_view kSafariFrontTab =
    "\" to tell current tab of front window to return (URL as text) & linefeed & (name as text)";
static constexpr std::string_view kChromeFrontTab =
    "\" to tell active tab of front window to return (URL as text) & linefeed & (title as text)";

template <>
std::span<const BrowserApp> allCases<BrowserApp>() {
  return kAllBrowserApps;
}

template <>
std::optional<BrowserApp> fromRawValue<BrowserApp>(std::string_view rawValue) {
  for (const BrowserInfo& browser : kBrowsers) {
    if (browser.rawValue == rawValue) return browser.app;
  }
  return std::nullopt;
}

std::string_view rawValue(BrowserApp app) {
  return info(app).rawValue;
}

std::string_view appName(BrowserApp app) {
  return info(app).appName;
}

bool isChromeFamily(BrowserApp app) {
  return app != BrowserApp::safari;
}

static std::string tellApplication(BrowserApp app) {
  std::string script(kTellApplication);
  script += appName(app);
  return script;
}

std::string evalScript(BrowserApp app, std::string_view javascript) {
  std::string script = tellApplication(app);
  if (!isChromeFamily(app)) {
    script += kDoJavaScript;
    script += appleScriptQuoted(javascript);
    script += kInCurrentTab;
    return script;
  }
  script += kExecuteInActiveTab;
  script += appleScriptQuoted(javascript);
  return script;
}

std::string navigateScript(BrowserApp app, std::string_view url) {
  std::string script = tellApplication(app);
  script += kSetURLOf;
  script += isChromeFamily(app) ? "active" : "current";
  script += kTabOfFrontWindowTo;
  script += appleScriptQuoted(url);
  return script;
}

std::string frontTabScript(BrowserApp app) {
  std::string script = tellApplication(app);
  script += isChromeFamily(app) ? kChromeFrontTab : kSafariFrontTab;
  return script;
}

std::string appleScriptQuoted(std::string_view text) {
  std::string escapedBackslashes;
  escapedBackslashes.reserve(text.size() + 2);
  for (char c : text) {
    if (c == '\\') escapedBackslashes += '\\';
    escapedBackslashes += c;
  }
  std::string quoted = "\"";
  for (char c : escapedBackslashes) {
    if (c == '"') quoted += '\\';
    quoted += c;
  }
  quoted += '"';
  return quoted;
}

}  // namespace zorvane
