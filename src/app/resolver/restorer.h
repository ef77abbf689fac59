// Restorer: finds a stored target on the screen again and answers with a Resolved, or
// with nothing when it no longer exists. Window numbers, process ids and positions in a
// stored target may be stale after a restart, and a file's icon may not be on screen at
// all: restoring a file may open a file-manager window to show it.
//
// `resolve(target, completion)` by the target's case:
//   file, folder  nothing at the path: nothing. Else the item's icon in a file-manager
//                 window (`findIcon`), for a folder also a window showing it
//                 (`folderWindow`). Else the file manager is asked to show the item
//                 (FileManager::reveal) and, once it answered, the icon is looked for
//                 again up to `kAttempts` times `kAttemptInterval` apart, on the main
//                 queue; the last fallback is the file manager's front window
//                 (`frontFinderWindow`), the target unchanged.
//   window        the application's window of that number, else of that title, else
//                 one whose title contains it or is contained in it, else its front
//                 window (`findWindow`), as a fresh window target.
//   browserTab    the browser's window found the same way; the stored URL and title.
// `completion` runs exactly once: before `resolve` returns, unless a reveal had to be
// waited for; then later, on the main queue.
//
// The file manager is the one that answers FileManager1 when it is one the
// FileManagerApp table knows, else the first known one with a window; without one the
// file-manager steps find nothing. Its tree is walked depth first with one shared
// counter: at most `kMaxVisited` elements and no deeper than the file manager's
// `itemSearchDepth`, so an attempt has a bounded cost.
//
// Holds only references to the services and the queue, which must outlive every chain
// of attempts; several resolves may run side by side and share nothing.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "app/resolver/anchor.h"
#include "app/resolver/drop_resolver.h"
#include "core/base/main_queue.h"
#include "platform/desktop_services.h"
#include "platform/file_manager.h"

namespace zorvane {

class Restorer {
 public:
  static constexpr int kAttempts = 6;
  static constexpr double kAttemptInterval = 0.35;
  static constexpr int kMaxVisited = 4000;
  static constexpr double kMinWindowWidth = 80;

  using Completion = std::function<void(std::optional<Resolved>)>;

  Restorer(DesktopServices& desktop, FileManager& fileManager, MainQueue& queue,
           std::optional<int32_t> ownPID = std::nullopt);

  void resolve(const Target& target, Completion completion);

  // The file's or folder's icon in the file manager's tree, with an ElementAnchor on
  // the window that holds it (none for a desktop icon).
  [[nodiscard]] std::optional<Resolved> findIcon(const URL& url, const Target& target);
  // A file-manager window that shows the folder.
  [[nodiscard]] std::optional<Resolved> folderWindow(const URL& url);
  // The application's window best matching a stored number and title.
  [[nodiscard]] std::optional<DropResolver::WindowInfo> findWindow(uint32_t id, const std::string& bundle,
                                                                   const std::string& title);
  // The file manager's front window, as the anchor of `target`.
  [[nodiscard]] std::optional<Resolved> frontFinderWindow(const Target& target);

  // The file manager's process and its entry in the table; nothing when none runs.
  [[nodiscard]] std::optional<FileManagerOwner> fileManager();

 private:
  using Attempt = std::function<std::optional<Resolved>()>;
  using Fallback = std::function<std::optional<Resolved>()>;
  void retry(int times, double every, Attempt attempt, Fallback fallback, Completion completion);
  std::shared_ptr<AccessibleElement> findElement(const std::shared_ptr<AccessibleElement>& element, int depth,
                                                 int maxDepth, int& visited, const std::string& needle,
                                                 const std::string& name);

  DesktopServices& desktop_;
  FileManager& fileManager_;
  MainQueue& queue_;
  DropResolver resolver_;
};

}  // namespace zorvane
