// FileManager: the desktop's file manager as a service: which program answers for it
// now, and the request to show a file with it selected. On Linux the session bus's
// org.freedesktop.FileManager1 (FileManagerBus in linux/), scripted in fake/.
//
// Which program owns the service is the desktop's choice, not ours: `owner()` says
// which it is, so that callers pick the way they look into its windows from the
// FileManagerApp table.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "core/base/expected.h"
#include "core/base/url.h"
#include "core/targets/file_manager_app.h"

namespace zorvane {

struct FileManagerOwner {
  int32_t pid = 0;
  // The known file manager this process is; null for a program the table doesn't know.
  const FileManagerApp* app = nullptr;
};

class FileManager {
 public:
  virtual ~FileManager() = default;

  // The process that answers for the file manager now; nothing when no process owns
  // the service (one may still be started on demand) or the bus can't be asked.
  // Answers within a short bound.
  virtual std::optional<FileManagerOwner> owner() = 0;

  // Shows `url` in a file-manager window with it selected, starting the file manager
  // when the desktop can. Where no file manager takes the request, the folder holding
  // `url` is opened with the desktop's opener instead (nothing selected). `done` runs
  // once, on the main queue, when the request was answered, failed, or ran out of time;
  // a failure's text says which.
  virtual void reveal(const URL& url, std::function<void(Expected<void>)> done) = 0;
};

}  // namespace zorvane
