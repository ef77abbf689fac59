// X11ApplicationLaunchWatcher: application launches from the window manager's list of
// client windows (_NET_CLIENT_LIST on the root window), on a connection and reader thread
// of its own (EventConnection).
//
// Each change of the list is compared with the last one. A new window's process comes
// from _NET_WM_PID, or, for clients that don't set it (plain Xt programs), from the
// X-Resource extension's client-id query. A process is new when no earlier window
// belonged to it; processes are told apart by pid and start time, so a pid the system
// reuses for a later program counts as new (the process side is LaunchedProcesses, in
// linux/). A window whose process can't be found at all stands for its X client (one
// launch per client connection). This process's own windows are never a launch.
//
// The application's identifier and name come from ApplicationIdentity (desktop entries,
// WM_CLASS, the executable), as WindowService::application gives them. Without a window
// manager that keeps the list nothing is reported. Lives on the main queue.
#pragma once

#include <memory>
#include <string>

#include "core/base/main_queue.h"
#include "platform/application_launch_watcher.h"

namespace zorvane {

class X11ApplicationLaunchWatcher final : public ApplicationLaunchWatcher {
 public:
  // Opens a connection to `displayName` (or $DISPLAY); fails when none can be opened.
  [[nodiscard]] static Expected<std::unique_ptr<X11ApplicationLaunchWatcher>> create(
      MainQueue& queue = MainQueue::main(), const std::string& displayName = "");
  ~X11ApplicationLaunchWatcher() override;

  [[nodiscard]] Expected<void> start() override;
  void stop() override;

 private:
  struct Impl;
  explicit X11ApplicationLaunchWatcher(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> impl_;
};

}  // namespace zorvane
