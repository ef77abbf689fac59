// BrowserApp: the browsers whose tabs can be targets, and the scripts that drive them.
//
// Each case's raw value is the browser's bundle identifier; that string is also its
// coded JSON form, and an unknown identifier makes no BrowserApp. `allCases` lists the
// cases in declaration order.
//
// The three script builders return AppleScript source. Two dialects exist: Safari's
// ("current tab", "do JavaScript", "name") and the Chrome family's ("active tab",
// "execute ... javascript", "title"); `isChromeFamily` picks between them. Every
// argument is quoted with `appleScriptQuoted`, so no text can break out of its string.
//
//   std::optional<BrowserApp> app = fromRawValue<BrowserApp>("com.brave.Browser");
//   std::string source = evalScript(*app, "document.title");
//   // tell application "Brave Browser" to execute active tab of front window
//   //   javascript "document.title"
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace zorvane {

enum class BrowserApp : uint8_t { chrome, safari, arc, brave, edge, chromium, vivaldi };

// Enumerations with a raw value declare these two for their own type.
template <typename Enum>
std::span<const Enum> allCases();
template <typename Enum>
std::optional<Enum> fromRawValue(std::string_view rawValue);

template <>
std::span<const BrowserApp> allCases<BrowserApp>();
template <>
std::optional<BrowserApp> fromRawValue<BrowserApp>(std::string_view rawValue);

// The bundle identifier, e.g. "com.google.Chrome".
[[nodiscard]] std::string_view rawValue(BrowserApp app);

// The name scripts address the application by, e.g. "Google Chrome".
[[nodiscard]] std::string_view appName(BrowserApp app);

// True for every browser but Safari.
[[nodiscard]] bool isChromeFamily(BrowserApp app);

// Runs `javascript` in the front window's current tab; the script's value is the result.
[[nodiscard]] std::string evalScript(BrowserApp app, std::string_view javascript);

// Points the front window's current tab at `url`.
[[nodiscard]] std::string navigateScript(BrowserApp app, std::string_view url);

// Returns two lines: the front tab's URL, then its title.
[[nodiscard]] std::string frontTabScript(BrowserApp app);

// `text` as an AppleScript string literal: each backslash doubled first, then each
// double quote escaped, the whole wrapped in double quotes. Nothing else is touched,
// so line breaks pass through as they are.
[[nodiscard]] std::string appleScriptQuoted(std::string_view text);

}  // namespace zorvane
