// The JSON form of Target. Kept apart from target.cpp: this file is about reading
// untrusted store contents safely, that one about what a target means.
#include <cmath>
#include <limits>

#include "core/targets/target.h"

namespace zorvane {

static constexpr std::string_view kFolderKey = "folder";
static constexpr std::string_view kFileKey = "file";
static constexpr std::string_view kBrowserTabKey = "browserTab";
static constexpr std::string_view kWindowKey = "window";
static constexpr std::string_view kInvalidKeyCount = "Invalid number of keys found, expected one.";

JSONValue Target::encode() const {
  JSONValue payload = JSONValue::object();
  std::string_view key;
  if (const auto* folder = std::get_if<Folder>(&payload_)) {
    key = kFolderKey;
    payload["_0"] = folder->url.absoluteString();
  } else if (const auto* file = std::get_if<File>(&payload_)) {
    key = kFileKey;
    payload["_0"] = file->url.absoluteString();
  } else if (const auto* tab = std::get_if<BrowserTab>(&payload_)) {
    key = kBrowserTabKey;
    payload["app"] = std::string(rawValue(tab->app));
    payload["windowID"] = tab->windowID;
    payload["url"] = tab->url.absoluteString();
    payload["title"] = tab->title;
  } else if (const auto* window = std::get_if<Window>(&payload_)) {
    key = kWindowKey;
    payload["pid"] = window->pid;
    payload["windowID"] = window->windowID;
    payload["bundleID"] = window->bundleID;
    payload["appName"] = window->appName;
    payload["title"] = window->title;
  }
  JSONValue coded = JSONValue::object();
  coded[std::string(key)] = std::move(payload);
  return coded;
}

namespace {

// One case's payload object while it is read; every failure names "<case>.<key>".
class PayloadReader {
 public:
  PayloadReader(std::string_view caseName, const JSONValue& payload)
      : caseName_(caseName), payload_(payload) {}

  Expected<const JSONValue*> field(std::string_view key) const {
    const JSONValue* value = subscript(payload_, key);
    if (value == nullptr) return failure(key, "missing");
    return value;
  }

  Expected<std::string> string(std::string_view key) const {
    Expected<const JSONValue*> value = field(key);
    if (!value) return Failure{value.error()};
    std::optional<std::string> text = stringValue(*value);
    if (!text) return failure(key, "expected a string");
    return std::move(*text);
  }

  Expected<URL> url(std::string_view key) const {
    Expected<std::string> text = string(key);
    if (!text) return Failure{text.error()};
    std::optional<URL> url = URL::parse(*text);
    if (!url) return failure(key, "not a valid absolute URL");
    return std::move(*url);
  }

  // A whole number within [minimum, maximum]. Integral floating-point values such as
  // 7.0 are accepted; anything else out of range fails rather than wrapping.
  template <typename Integer>
  Expected<Integer> integer(std::string_view key) const {
    Expected<const JSONValue*> found = field(key);
    if (!found) return Failure{found.error()};
    const JSONValue& value = **found;
    if (!value.is_number()) return failure(key, "expected a number");
    constexpr auto minimum = std::numeric_limits<Integer>::min();
    constexpr auto maximum = std::numeric_limits<Integer>::max();
    std::string rangeText = "expected a whole number from " + std::to_string(minimum) + " to " +
                            std::to_string(maximum);
    if (value.is_number_unsigned()) {
      auto number = value.get<uint64_t>();
      if (number > static_cast<uint64_t>(maximum)) return failure(key, rangeText);
      return static_cast<Integer>(number);
    }
    if (value.is_number_integer()) {
      auto number = value.get<int64_t>();
      if (number < static_cast<int64_t>(minimum) || number > static_cast<int64_t>(maximum)) {
        return failure(key, rangeText);
      }
      return static_cast<Integer>(number);
    }
    auto number = value.get<double>();
    if (!std::isfinite(number) || std::trunc(number) != number ||
        number < static_cast<double>(minimum) || number > static_cast<double>(maximum)) {
      return failure(key, rangeText);
    }
    return static_cast<Integer>(number);
  }

  Expected<BrowserApp> browserApp(std::string_view key) const {
    Expected<std::string> text = string(key);
    if (!text) return Failure{text.error()};
    std::optional<BrowserApp> app = fromRawValue<BrowserApp>(*text);
    if (!app) return failure(key, "unknown browser \"" + *text + "\"");
    return *app;
  }

 private:
  Failure failure(std::string_view key, std::string_view why) const {
    return Failure{std::string(caseName_) + "." + std::string(key) + ": " + std::string(why)};
  }

  std::string_view caseName_;
  const JSONValue& payload_;
};

}  // namespace

static Expected<Target> decodeFolderOrFile(std::string_view key, const PayloadReader& reader) {
  Expected<URL> url = reader.url("_0");
  if (!url) return Failure{url.error()};
  if (key == kFolderKey) return Target::folder(std::move(*url));
  return Target::file(std::move(*url));
}

static Expected<Target> decodeBrowserTab(const PayloadReader& reader) {
  Expected<BrowserApp> app = reader.browserApp("app");
  if (!app) return Failure{app.error()};
  Expected<uint32_t> windowID = reader.integer<uint32_t>("windowID");
  if (!windowID) return Failure{windowID.error()};
  Expected<URL> url = reader.url("url");
  if (!url) return Failure{url.error()};
  Expected<std::string> title = reader.string("title");
  if (!title) return Failure{title.error()};
  return Target::browserTab(*app, *windowID, std::move(*url), std::move(*title));
}

static Expected<Target> decodeWindow(const PayloadReader& reader) {
  Expected<int32_t> pid = reader.integer<int32_t>("pid");
  if (!pid) return Failure{pid.error()};
  Expected<uint32_t> windowID = reader.integer<uint32_t>("windowID");
  if (!windowID) return Failure{windowID.error()};
  Expected<std::string> bundleID = reader.string("bundleID");
  if (!bundleID) return Failure{bundleID.error()};
  Expected<std::string> appName = reader.string("appName");
  if (!appName) return Failure{appName.error()};
  Expected<std::string> title = reader.string("title");
  if (!title) return Failure{title.error()};
  return Target::window(*pid, *windowID, std::move(*bundleID), std::move(*appName),
                        std::move(*title));
}

Expected<Target> Target::decode(const JSONValue& value) {
  if (!value.is_object()) {
    return Failure{std::string("target: expected an object, found ") + value.type_name()};
  }
  // Keys other than the four case names are ignored; exactly one case name must be there.
  std::string_view caseKey;
  int caseKeys = 0;
  for (std::string_view key : {kFolderKey, kFileKey, kBrowserTabKey, kWindowKey}) {
    if (subscript(value, key) == nullptr) continue;
    caseKey = key;
    ++caseKeys;
  }
  if (caseKeys != 1) return Failure{std::string(kInvalidKeyCount)};

  const JSONValue& payload = *subscript(value, caseKey);
  if (!payload.is_object()) {
    return Failure{std::string(caseKey) + ": expected an object, found " + payload.type_name()};
  }
  PayloadReader reader(caseKey, payload);
  if (caseKey == kBrowserTabKey) return decodeBrowserTab(reader);
  if (caseKey == kWindowKey) return decodeWindow(reader);
  return decodeFolderOrFile(caseKey, reader);
}

}  // namespace zorvane
