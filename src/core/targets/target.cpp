#include "core/targets/target.h"

#include "core/base/paths.h"
#include "core/targets/file_manager_app.h"

namespace zorvane {

namespace {

// Lets std::visit take one lambda per case.
template <typename... Lambdas>
struct Overloaded : Lambdas... {
  using Lambdas::operator()...;
};
template <typename... Lambdas>
Overloaded(Lambdas...) -> Overloaded<Lambdas...>;

}  // namespace

Target Target::folder(URL url) {
  return Target(Folder{std::move(url)});
}

Target Target::file(URL url) {
  return Target(File{std::move(url)});
}

Target Target::browserTab(BrowserApp app, uint32_t windowID, URL url, std::string title) {
  return Target(BrowserTab{app, windowID, std::move(url), std::move(title)});
}

Target Target::window(int32_t pid, uint32_t windowID, std::string bundleID, std::string appName,
                      std::string title) {
  return Target(Window{pid, windowID, std::move(bundleID), std::move(appName), std::move(title)});
}

std::string Target::kindLabel() const {
  switch (kind()) {
    case Kind::folder:
      return "folder";
    case Kind::file:
      return "file";
    case Kind::browserTab:
      return "browser tab";
    case Kind::window:
      return "app window";
  }
  return "";
}

std::string Target::locator() const {
  return std::visit(Overloaded{
                        [](const Folder& folder) { return folder.url.path(); },
                        [](const File& file) { return file.url.path(); },
                        [](const BrowserTab& tab) { return tab.url.absoluteString(); },
                        [](const Window& window) {
                          return window.bundleID + " pid " + std::to_string(window.pid) +
                                 " window " + std::to_string(window.windowID);
                        },
                    },
                    payload_);
}

std::string Target::displayName() const {
  return std::visit(Overloaded{
                        [](const Folder& folder) { return folder.url.lastPathComponent(); },
                        [](const File& file) { return file.url.lastPathComponent(); },
                        [](const BrowserTab& tab) {
                          if (!tab.title.empty()) return tab.title;
                          return tab.url.host().value_or(tab.url.absoluteString());
                        },
                        [](const Window& window) {
                          if (window.title.empty()) return window.appName;
                          return window.appName + " \u2014 " + window.title;
                        },
                    },
                    payload_);
}

std::optional<URL> Target::fileURL() const {
  if (const auto* folder = std::get_if<Folder>(&payload_)) return folder->url;
  if (const auto* file = std::get_if<File>(&payload_)) return file->url;
  return std::nullopt;
}

URL Target::workingDirectory() const {
  if (const auto* folder = std::get_if<Folder>(&payload_)) return folder->url;
  if (const auto* file = std::get_if<File>(&payload_)) return file->url.deletingLastPathComponent();
  return scratchDirectory();
}

std::optional<ControlWindow> Target::controlWindow() const {
  if (const auto* tab = std::get_if<BrowserTab>(&payload_)) {
    return ControlWindow{tab->windowID, std::string(rawValue(tab->app))};
  }
  if (const auto* window = std::get_if<Window>(&payload_)) {
    return ControlWindow{window->windowID, window->bundleID};
  }
  return std::nullopt;
}

std::string Target::targetKey() const {
  return std::visit(
      Overloaded{
          [](const Folder& folder) { return "folder:" + folder.url.standardized().path(); },
          [](const File& file) { return "file:" + file.url.standardized().path(); },
          [](const BrowserTab& tab) {
            return "tab:" + tab.url.withoutFragment().value_or(tab.url.absoluteString());
          },
          [](const Window& window) {
            return "window:" + window.bundleID + ":" + std::to_string(window.windowID);
          },
      },
      payload_);
}

std::optional<std::string> Target::looseKey() const {
  if (const auto* tab = std::get_if<BrowserTab>(&payload_)) {
    if (tab->title.empty()) return std::nullopt;
    return "tabtitle:" + std::string(rawValue(tab->app)) + ":" + tab->title;
  }
  if (const auto* window = std::get_if<Window>(&payload_)) {
    if (window->title.empty()) return std::nullopt;
    return "window:" + window->bundleID + ":" + window->title;
  }
  return std::nullopt;
}

URL Target::scratchDirectory() {
  return URL::fileURL(Paths::scratchDirectory(), true);
}

Target Target::renamed(const URL& url) const {
  if (std::holds_alternative<Folder>(payload_)) return folder(url);
  if (std::holds_alternative<File>(payload_)) return file(url);
  return *this;
}

const BundleIDSet& systemBundleIDs() {
  static const BundleIDSet ids = {
      "com.apple.dock",          "com.apple.WindowManager",
      "com.apple.controlcenter", "com.apple.notificationcenterui",
      "com.apple.Spotlight",     "com.apple.loginwindow",
  };
  return ids;
}

const BundleIDSet& denylistedBundleIDs() {
  static const BundleIDSet ids = {
      "com.1password.1password",  "com.agilebits.onepassword7",  "com.bitwarden.desktop",
      "com.apple.keychainaccess", "com.apple.systempreferences", "com.apple.Passwords",
  };
  return ids;
}

bool isDenylisted(const std::optional<std::string>& bundleID) {
  if (!bundleID) return false;
  if (denylistedBundleIDs().contains(*bundleID)) return true;
  std::string lower = *bundleID;
  for (char& c : lower) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return lower.find("bank") != std::string::npos;
}

std::optional<HitKind> classifyHit(int32_t ownerPID, int32_t ownPID,
                                   const std::optional<std::string>& ownerBundleID,
                                   const std::optional<URL>& axURL) {
  if (ownerPID == ownPID) return std::nullopt;
  if (isDenylisted(ownerBundleID)) return std::nullopt;
  // A file under the pointer wins over whatever kind of application shows it.
  if (axURL && axURL->isFileURL()) return HitKind::finderItem(*axURL);
  if (!ownerBundleID) return HitKind::window();
  // A hit on a file manager's window without an item under the pointer is a hit on the
  // folder it shows.
  if (fileManagerForBundleID(*ownerBundleID)) return HitKind::finderWindowFolder();
  if (systemBundleIDs().contains(*ownerBundleID)) return std::nullopt;
  if (std::optional<BrowserApp> app = fromRawValue<BrowserApp>(*ownerBundleID)) {
    return HitKind::browser(*app);
  }
  return HitKind::window();
}

}  // namespace zorvane

static void combineHash(size_t& seed, size_t value) {
  seed ^= value + 0x9e3779b97f4a7c15ULL + (seed << 6) + (seed >> 2);
}

size_t std::hash<zorvane::Target>::operator()(const zorvane::Target& target) const noexcept {
  using zorvane::Target;
  size_t seed = target.payload().index();
  auto text = [&seed](const std::string& value) {
    combineHash(seed, std::hash<std::string>()(value));
  };
  auto url = [&seed](const zorvane::URL& value) {
    combineHash(seed, std::hash<zorvane::URL>()(value));
  };
  auto number = [&seed](int64_t value) { combineHash(seed, std::hash<int64_t>()(value)); };
  std::visit(zorvane::Overloaded{
                 [&](const Target::Folder& folder) { url(folder.url); },
                 [&](const Target::File& file) { url(file.url); },
                 [&](const Target::BrowserTab& tab) {
                   number(static_cast<int64_t>(tab.app));
                   number(tab.windowID);
                   url(tab.url);
                   text(tab.title);
                 },
                 [&](const Target::Window& window) {
                   number(window.pid);
                   number(window.windowID);
                   text(window.bundleID);
                   text(window.appName);
                   text(window.title);
                 },
             },
             target.payload());
  return seed;
}
