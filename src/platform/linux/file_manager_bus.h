// FileManagerBus: the file manager behind org.freedesktop.FileManager1 on the session
// bus.
//
// `owner()` asks the bus daemon (GetNameOwner, then GetConnectionUnixProcessID) and
// maps the process's executable to the FileManagerApp table (FileManagers::ofProcess);
// the daemon answers these, so they never wait on the file manager itself (each is
// bounded by one second all the same).
//
// `reveal(url)` calls ShowItems([url], "") when the name has an owner or can be
// activated (ListActivatableNames); the call runs on a thread of its own and gives up
// after `revealTimeout`, so a file manager that hangs costs that long and no more, and
// the answer is posted to the main queue. Without a file manager, the folder holding
// the file is opened with xdg-open (else `gio open`), which selects nothing.
//
// The connection is private to this object and made on first use, from
// DBUS_SESSION_BUS_ADDRESS or $XDG_RUNTIME_DIR/bus (never by starting a bus). The main
// queue must outlive the object; answers that come after its end are dropped.
#pragma once

#include <chrono>
#include <memory>

#include "core/base/main_queue.h"
#include "platform/file_manager.h"

namespace zorvane {

class FileManagerBus final : public FileManager {
 public:
  struct Options {
    std::chrono::milliseconds revealTimeout{5000};
    std::chrono::milliseconds busTimeout{1000};
  };

  explicit FileManagerBus(MainQueue& queue);
  FileManagerBus(MainQueue& queue, Options options);
  ~FileManagerBus() override;

  std::optional<FileManagerOwner> owner() override;
  void reveal(const URL& url, std::function<void(Expected<void>)> done) override;

 private:
  struct Shared;
  std::shared_ptr<Shared> shared_;
  Options options_;
};

}  // namespace zorvane
