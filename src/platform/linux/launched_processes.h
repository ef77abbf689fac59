// LaunchedProcesses: the processes a launch watcher has seen, so that each is reported
// once, however many windows it shows.
//
// A process is known by its key: its pid and start time (/proc), so a pid the system
// reuses for a later program counts as new; a client of the display server whose process
// can't be found at all is known by the server's own id for that client instead. The
// display side (which window belongs to which process) is the watcher's; see
// x11/x11_application_launch_watcher.h. Not thread-safe: one thread of the watcher's.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace zorvane {

class LaunchedProcesses {
 public:
  // The key of a running process; nothing when it has ended.
  [[nodiscard]] static std::optional<std::string> processKey(int32_t pid);
  // The key of a display client whose process is unknown.
  [[nodiscard]] static std::string clientKey(unsigned long client);

  // Forgets every process but this one, whose windows are never a launch.
  void reset();
  void clear() { processes_.clear(); }
  // Records `pid` under `key` (pid 0 for a client key); false when the key was seen
  // already.
  bool add(const std::string& key, int32_t pid);
  // Drops the processes that ended, so the table doesn't grow for ever; clients without
  // a pid stay (their keys can't be checked, and there are few of them).
  void forgetEnded();

 private:
  std::map<std::string, int32_t> processes_;
};

}  // namespace zorvane
