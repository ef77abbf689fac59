// InotifyFolderWatcher: the folder watcher on Linux's inotify, one watch per folder.
//
// A reader thread reads the kernel's events and posts them to the main queue, where all
// of the state lives: the count of each folder's watches and the names it holds. The
// names are kept so that only names that are new are reported, and so that an overflow
// of the kernel's queue (IN_Q_OVERFLOW: events were lost) costs only a listing of each
// folder, which reports what appeared meanwhile. Two paths to the same folder (a link)
// share the kernel's watch and are reported each under its own path.
//
// A folder that doesn't exist, or stops existing, is looked for again every
// `Options::retrySeconds` until it is there (a timer, no busy loop), and the names in it
// are then reported as added. The kernel's limit on watches
// (fs.inotify.max_user_watches) makes `watch` fail with a text that names it.
#pragma once

#include <memory>

#include "core/base/main_queue.h"
#include "platform/folder_watcher.h"

namespace zorvane {

class InotifyFolderWatcher final : public FolderWatcher {
 public:
  struct Options {
    double retrySeconds = 2.0;
  };
  // Fails when the kernel gives no inotify instance (fs.inotify.max_user_instances).
  [[nodiscard]] static Expected<std::unique_ptr<InotifyFolderWatcher>> create(MainQueue& queue = MainQueue::main());
  [[nodiscard]] static Expected<std::unique_ptr<InotifyFolderWatcher>> create(MainQueue& queue, Options options);
  ~InotifyFolderWatcher() override;

  [[nodiscard]] Expected<void> watch(const std::string& folder) override;
  void unwatch(const std::string& folder) override;

  // For tests: the next batch of events read from the kernel is thrown away and taken as
  // an overflow, as the kernel does when its queue is full; the rescan then has to find
  // what those events told.
  void loseNextEventsForTesting();

 private:
  struct Impl;
  explicit InotifyFolderWatcher(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> impl_;
};

}  // namespace zorvane
