#include "app/resolver/drop_resolver.h"

#include <unistd.h>

#include <filesystem>

#include "app/resolver/ax.h"
#include "core/base/log.h"
#include "core/targets/file_manager_app.h"

namespace zorvane {
namespace {

// The window service puts the desktop's own windows (the one that draws the desktop
// icons) at this layer, below everything else.
constexpr int kDesktopLayer = WindowInfo::desktopLayer;

// An icon without a frame of its own is given this square at the point.
constexpr double kFallbackIconSize = 64;

DropResolver::WindowInfo infoOf(const zorvane::WindowInfo& window) {
  return {window.windowID, window.ownerPID, Rect{window.x, window.y, window.width, window.height}, window.layer,
          window.title};
}

}  // namespace

DropResolver::DropResolver(DesktopServices& desktop, std::optional<int32_t> ownPID)
    : desktop_(desktop), ownPID_(ownPID.value_or(int32_t(::getpid()))) {}

std::vector<DropResolver::WindowInfo> DropResolver::onScreenWindows() {
  std::vector<WindowInfo> list;
  for (const zorvane::WindowInfo& window : desktop_.windows.windows()) {
    if (!window.onScreen || window.layer <= kDesktopLayer) continue;
    list.push_back(infoOf(window));
  }
  return list;
}

std::optional<std::string> DropResolver::bundleID(int32_t pid) {
  std::optional<ApplicationInfo> app = desktop_.windows.application(pid);
  if (!app || app->bundleID.empty()) return std::nullopt;
  return app->bundleID;
}

Target DropResolver::target(const URL& url) {
  std::error_code error;
  if (std::filesystem::is_directory(url.path(), error)) return Target::folder(url);
  return Target::file(url);
}

Resolved DropResolver::windowTarget(const WindowInfo& info, const std::string& bundle) {
  std::optional<ApplicationInfo> app = desktop_.windows.application(info.pid);
  std::string appName = app && !app->name.empty() ? app->name : bundle;
  return {Target::window(info.pid, info.id, bundle, appName, info.title),
          std::make_shared<WindowAnchor>(desktop_.windows, info.id, info.frame, true, false)};
}

std::optional<Resolved> DropResolver::resolve(Point at) {
  std::optional<WindowInfo> hit;
  for (WindowInfo& window : onScreenWindows()) {
    if (window.layer != 0 || window.pid == ownPID_) continue;
    if (!window.frame.contains(at)) continue;
    hit = std::move(window);
    break;
  }
  if (!hit) return resolveDesktop(at);

  std::optional<std::string> bundle = bundleID(hit->pid);
  // Nothing of a denied application is read: not its tree, not its pages.
  if (isDenylisted(bundle)) return std::nullopt;

  std::shared_ptr<AccessibleElement> element = desktop_.accessibility.elementAt(hit->pid, at);
  std::optional<std::pair<URL, std::shared_ptr<AccessibleElement>>> item;
  if (element) item = AX::fileURL(element);

  std::optional<HitKind> kind =
      classifyHit(hit->pid, ownPID_, bundle, item ? std::optional<URL>(item->first) : std::nullopt);
  if (!kind) return std::nullopt;

  if (std::holds_alternative<HitKind::FinderItem>(kind->value())) {
    const URL& url = std::get<HitKind::FinderItem>(kind->value()).url;
    Rect frame = AX::frame(*item->second).value_or(Rect{at.x, at.y, kFallbackIconSize, kFallbackIconSize});
    return Resolved{target(url), std::make_shared<ElementAnchor>(desktop_.windows, item->second, hit->id, frame, true)};
  }
  if (const auto* browser = std::get_if<HitKind::Browser>(&kind->value())) {
    return browserTarget(*hit, browser->app, bundle);
  }
  if (std::holds_alternative<HitKind::FinderWindowFolder>(kind->value())) {
    if (std::optional<std::string> folder = folderOf(*hit, element)) {
      return Resolved{Target::folder(URL::fileURL(*folder, true)),
                      std::make_shared<WindowAnchor>(desktop_.windows, hit->id, hit->frame, true, false)};
    }
    return windowTarget(*hit, *bundle);
  }
  if (bundle) return windowTarget(*hit, *bundle);
  std::optional<ApplicationInfo> app = desktop_.windows.application(hit->pid);
  return windowTarget(*hit, app && !app->name.empty() ? app->name : "unknown");
}

std::optional<Resolved> DropResolver::resolveWindow(uint32_t windowID) {
  std::optional<zorvane::WindowInfo> found = desktop_.windows.window(windowID);
  if (!found || !found->onScreen || found->layer != 0 || found->ownerPID == ownPID_) return std::nullopt;
  WindowInfo window = infoOf(*found);
  std::optional<std::string> bundle = bundleID(window.pid);
  if (isDenylisted(bundle)) return std::nullopt;
  std::optional<HitKind> kind = classifyHit(window.pid, ownPID_, bundle, std::nullopt);
  if (!kind) return std::nullopt;
  if (const auto* browser = std::get_if<HitKind::Browser>(&kind->value())) {
    return browserTarget(window, browser->app, bundle);
  }
  if (std::holds_alternative<HitKind::FinderWindowFolder>(kind->value())) {
    if (std::optional<std::string> folder = folderOf(window, nullptr)) {
      return Resolved{Target::folder(URL::fileURL(*folder, true)),
                      std::make_shared<WindowAnchor>(desktop_.windows, window.id, window.frame, true, false)};
    }
  }
  if (bundle) return windowTarget(window, *bundle);
  std::optional<ApplicationInfo> app = desktop_.windows.application(window.pid);
  return windowTarget(window, app && !app->name.empty() ? app->name : "unknown");
}

std::optional<Resolved> DropResolver::browserTarget(const WindowInfo& window, BrowserApp app,
                                                    const std::optional<std::string>& bundle) {
  // The browser is asked for this window's own front tab, named by where the window
  // manager shows it and its title, never for whichever page it lists first.
  Expected<std::string> tab = desktop_.browsers.frontTab(
      browserWindowFrom(desktop_.windows, window.id, window.pid, app, window.frame, window.title));
  if (tab) {
    std::string_view text = *tab;
    size_t newline = text.find('\n');
    std::string_view first = text.substr(0, newline);
    std::string title = newline == std::string_view::npos ? "" : std::string(text.substr(newline + 1));
    if (auto secondBreak = title.find('\n'); secondBreak != std::string::npos) title.resize(secondBreak);
    if (!first.empty()) {
      if (std::optional<URL> url = URL::parse(first)) {
        return Resolved{Target::browserTab(app, window.id, *url, title),
                        std::make_shared<WindowAnchor>(desktop_.windows, window.id, window.frame, true, false)};
      }
    }
  } else {
    Log::info("drop: the browser's front tab can't be read, taking the window: " + tab.error());
  }
  return windowTarget(window, bundle.value_or(std::string(rawValue(app))));
}

std::optional<std::string> DropResolver::folderOf(const WindowInfo& window,
                                                  const std::shared_ptr<AccessibleElement>& element) {
  if (element) return element->folder();
  // No element answered at the point: the file manager's window of this title.
  for (const std::shared_ptr<AccessibleElement>& candidate : desktop_.accessibility.windows(window.pid)) {
    if (candidate->title() != window.title) continue;
    if (std::optional<std::string> folder = candidate->folder()) return folder;
  }
  return std::nullopt;
}

std::optional<Resolved> DropResolver::resolveDesktop(Point at) {
  for (const zorvane::WindowInfo& window : desktop_.windows.windows()) {
    if (!window.onScreen || window.layer > kDesktopLayer) continue;
    if (!Rect{window.x, window.y, window.width, window.height}.contains(at)) continue;
    std::optional<std::string> bundle = bundleID(window.ownerPID);
    if (!bundle || !fileManagerForBundleID(*bundle)) continue;
    std::shared_ptr<AccessibleElement> element = desktop_.accessibility.elementAt(window.ownerPID, at);
    if (!element) return std::nullopt;
    auto item = AX::fileURL(element);
    if (!item) return std::nullopt;
    std::optional<Rect> frame = AX::frame(*item->second);
    if (!frame) return std::nullopt;
    return Resolved{target(item->first),
                    std::make_shared<ElementAnchor>(desktop_.windows, item->second, std::nullopt, *frame, true)};
  }
  return std::nullopt;
}

}  // namespace zorvane
