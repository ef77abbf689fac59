// FolderWatcher: tells what appears in folders, one level deep. InotifyFolderWatcher in
// linux/ (Linux inotify), FakeFolderWatcher in fake/.
//
//   watcher->onEvent = [this](const FolderEvent& event) { ... };
//   if (auto watched = watcher->watch("/home/me/Downloads"); !watched) Log::info(watched.error());
//
// Watches are counted: a folder asked for twice is watched once and stops being
// watched at the second `unwatch`. What is in a folder when its watch begins is the
// baseline and is not reported. After that each new name in the folder (created, or
// moved in from elsewhere, a file or a folder) is reported once as `added`; a name
// that goes and comes back is reported again. A watched folder that is deleted or moved
// away is reported `gone`; the watch then waits for it to come back, and reports what
// is in it as `added` when it does. `onEvent` runs on the main queue, never after the
// folder's last `unwatch` or the object's destruction.
#pragma once

#include <functional>
#include <string>

#include "core/base/expected.h"

namespace zorvane {

struct FolderEvent {
  enum class Kind { added, gone };
  Kind kind = Kind::added;
  std::string folder;  // as it was passed to `watch`, without a trailing slash
  std::string name;    // the entry's name; "" for `gone`
  std::string path;    // folder + "/" + name; the folder itself for `gone`
  bool isFolder = false;
};

class FolderWatcher {
 public:
  virtual ~FolderWatcher() = default;

  std::function<void(const FolderEvent&)> onEvent;

  // Starts (or counts one more) watch of an absolute folder path. A folder that doesn't
  // exist yet is watched from when it appears. Fails for a path that isn't absolute,
  // names a file, can't be read, or when the system's limit of watches is reached.
  [[nodiscard]] virtual Expected<void> watch(const std::string& folder) = 0;
  // Counts one watch of the folder off; the last one ends it. Unknown folders are ignored.
  virtual void unwatch(const std::string& folder) = 0;
};

}  // namespace zorvane
