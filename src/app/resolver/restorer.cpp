#include "app/resolver/restorer.h"

#include <filesystem>
#include <set>

#include "core/base/log.h"

namespace zorvane {

Restorer::Restorer(DesktopServices& desktop, FileManager& fileManager, MainQueue& queue, std::optional<int32_t> ownPID)
    : desktop_(desktop), fileManager_(fileManager), queue_(queue), resolver_(desktop, ownPID) {}

std::optional<FileManagerOwner> Restorer::fileManager() {
  if (std::optional<FileManagerOwner> owner = fileManager_.owner(); owner && owner->app) return owner;
  for (const WindowInfo& window : desktop_.windows.windows()) {
    std::optional<std::string> bundle = resolver_.bundleID(window.ownerPID);
    if (!bundle) continue;
    if (const FileManagerApp* app = fileManagerForBundleID(*bundle)) return FileManagerOwner{window.ownerPID, app};
  }
  return std::nullopt;
}

void Restorer::resolve(const Target& target, Completion completion) {
  if (const auto* tab = std::get_if<Target::BrowserTab>(&target.payload())) {
    std::optional<DropResolver::WindowInfo> window = findWindow(tab->windowID, std::string(rawValue(tab->app)), tab->title);
    if (!window) return completion(std::nullopt);
    return completion(Resolved{Target::browserTab(tab->app, window->id, tab->url, tab->title),
                               std::make_shared<WindowAnchor>(desktop_.windows, window->id, window->frame, true, false)});
  }
  if (const auto* stored = std::get_if<Target::Window>(&target.payload())) {
    std::optional<DropResolver::WindowInfo> window = findWindow(stored->windowID, stored->bundleID, stored->title);
    if (!window) return completion(std::nullopt);
    return completion(resolver_.windowTarget(*window, stored->bundleID));
  }

  URL url = *target.fileURL();
  bool isFolder = target.kind() == Target::Kind::folder;
  std::error_code error;
  // A moved or deleted file is not searched for.
  if (!std::filesystem::exists(url.path(), error)) return completion(std::nullopt);
  if (auto found = findIcon(url, target)) return completion(std::move(found));
  if (isFolder) {
    if (auto found = folderWindow(url)) return completion(std::move(found));
  }

  // The attempts start once the file manager has answered: one started on demand takes
  // from a fifth of a second to most of one before its window is there.
  Restorer self = *this;
  fileManager_.reveal(url, [self, url, target, isFolder, completion = std::move(completion)](Expected<void> shown) mutable {
    if (!shown) Log::info("restore: " + shown.error());
    Attempt attempt = [self, url, target, isFolder]() mutable -> std::optional<Resolved> {
      if (auto found = self.findIcon(url, target)) return found;
      if (isFolder) return self.folderWindow(url);
      return std::nullopt;
    };
    Fallback fallback = [self, target]() mutable { return self.frontFinderWindow(target); };
    self.queue_.after(kAttemptInterval, [self, attempt, fallback, completion]() mutable {
      self.retry(kAttempts, kAttemptInterval, attempt, fallback, completion);
    });
  });
}

void Restorer::retry(int times, double every, Attempt attempt, Fallback fallback, Completion completion) {
  if (std::optional<Resolved> found = attempt()) return completion(std::move(found));
  if (times < 2) return completion(fallback());
  Restorer self = *this;
  queue_.after(every, [self, times, every, attempt = std::move(attempt), fallback = std::move(fallback),
                       completion = std::move(completion)]() mutable {
    self.retry(times - 1, every, std::move(attempt), std::move(fallback), std::move(completion));
  });
}

std::shared_ptr<AccessibleElement> Restorer::findElement(const std::shared_ptr<AccessibleElement>& element, int depth,
                                                         int maxDepth, int& visited, const std::string& needle,
                                                         const std::string& name) {
  if (++visited >= kMaxVisited || depth >= maxDepth) return nullptr;
  // A file manager's item carries its file's name (as its title, or, in GTK 2 icon
  // views, as its text), and its URL is the shown folder plus that name: only elements
  // of that name are asked for their URL, which costs a look at the window's location
  // bar.
  if (element->title() == name || element->value() == name) {
    if (std::optional<std::string> text = element->url()) {
      if (std::optional<URL> url = URL::parse(*text); url && url->isFileURL() && url->standardized().path() == needle)
        return element;
    }
  }
  std::optional<std::vector<std::shared_ptr<AccessibleElement>>> children = element->children();
  if (!children) return nullptr;
  for (const std::shared_ptr<AccessibleElement>& child : *children) {
    if (auto found = findElement(child, depth + 1, maxDepth, visited, needle, name)) return found;
    if (visited >= kMaxVisited) return nullptr;
  }
  return nullptr;
}

std::optional<Resolved> Restorer::findIcon(const URL& url, const Target& target) {
  std::optional<FileManagerOwner> manager = fileManager();
  if (!manager) return std::nullopt;
  URL standard = url.standardized();
  std::string needle = standard.path();
  std::string name = standard.lastPathComponent();
  // The application itself is the walk's first element, at depth 0; its windows lie at
  // depth 1.
  int visited = 1;
  int maxDepth = manager->app->itemSearchDepth;
  std::shared_ptr<AccessibleElement> element;
  for (const std::shared_ptr<AccessibleElement>& window : desktop_.accessibility.windows(manager->pid)) {
    element = findElement(window, 1, maxDepth, visited, needle, name);
    if (element || visited >= kMaxVisited) break;
  }
  if (!element) return std::nullopt;
  std::optional<Rect> frame = element->frame();
  if (!frame || !(frame->width > 0)) return std::nullopt;

  Point middle{frame->x + frame->width / 2, frame->y + frame->height / 2};
  std::optional<uint32_t> windowID;
  for (const DropResolver::WindowInfo& window : resolver_.onScreenWindows()) {
    if (window.layer != 0 || window.pid != manager->pid || !window.frame.contains(middle)) continue;
    windowID = window.id;
    break;
  }
  return Resolved{target, std::make_shared<ElementAnchor>(desktop_.windows, element, windowID, *frame, true)};
}

std::optional<Resolved> Restorer::folderWindow(const URL& url) {
  std::optional<FileManagerOwner> manager = fileManager();
  if (!manager) return std::nullopt;
  std::string needle = url.standardized().path();
  std::string name = url.lastPathComponent();
  std::vector<std::shared_ptr<AccessibleElement>> elements;
  bool elementsRead = false;
  for (const DropResolver::WindowInfo& window : resolver_.onScreenWindows()) {
    if (window.layer != 0 || window.pid != manager->pid || !manager->app->titleMayShow(window.title, name)) continue;
    if (!elementsRead) elements = desktop_.accessibility.windows(manager->pid), elementsRead = true;
    // The window's element: of those with its title, the ones whose frame holds the
    // window's middle first (toolkits that report window-relative frames match by
    // title alone). Windows of the same title are then told apart by the folder each
    // shows.
    Point middle{window.frame.x + window.frame.width / 2, window.frame.y + window.frame.height / 2};
    std::vector<std::shared_ptr<AccessibleElement>> placed, titled;
    for (const std::shared_ptr<AccessibleElement>& element : elements) {
      if (element->title() != window.title) continue;
      std::optional<Rect> frame = element->frame();
      (frame && frame->contains(middle) ? placed : titled).push_back(element);
    }
    for (const auto& element : placed.empty() ? titled : placed) {
      std::optional<std::string> folder = element->folder();
      if (!folder || URL::fileURL(*folder, true).standardized().path() != needle) continue;
      return Resolved{Target::folder(url),
                      std::make_shared<WindowAnchor>(desktop_.windows, window.id, window.frame, true, false)};
    }
  }
  return std::nullopt;
}

std::optional<DropResolver::WindowInfo> Restorer::findWindow(uint32_t id, const std::string& bundle,
                                                             const std::string& title) {
  std::set<int32_t> pids;
  for (const WindowInfo& window : desktop_.windows.windows()) {
    if (pids.contains(window.ownerPID)) continue;
    if (resolver_.bundleID(window.ownerPID) == bundle) pids.insert(window.ownerPID);
  }
  if (pids.empty()) return std::nullopt;
  std::vector<DropResolver::WindowInfo> candidates;
  for (DropResolver::WindowInfo& window : resolver_.onScreenWindows()) {
    if (window.layer == 0 && pids.contains(window.pid) && window.frame.width > kMinWindowWidth)
      candidates.push_back(std::move(window));
  }
  if (candidates.empty()) return std::nullopt;
  for (const auto& window : candidates) {
    if (window.id == id) return window;
  }
  if (!title.empty()) {
    for (const auto& window : candidates) {
      if (window.title == title) return window;
    }
    for (const auto& window : candidates) {
      if (!window.title.empty() &&
          (window.title.find(title) != std::string::npos || title.find(window.title) != std::string::npos))
        return window;
    }
  }
  return candidates.front();
}

std::optional<Resolved> Restorer::frontFinderWindow(const Target& target) {
  std::optional<FileManagerOwner> manager = fileManager();
  if (!manager) return std::nullopt;
  for (const DropResolver::WindowInfo& window : resolver_.onScreenWindows()) {
    if (window.layer != 0 || window.pid != manager->pid || !(window.frame.width > kMinWindowWidth)) continue;
    return Resolved{target, std::make_shared<WindowAnchor>(desktop_.windows, window.id, window.frame, true, false)};
  }
  return std::nullopt;
}

}  // namespace zorvane
