// ActivityLog: the one door through which every part of the program writes to the
// activity log, and the observable list the hub's Activity tab shows.
//
// It owns an ActivityStore and lives on the main queue. `add` may be called from any
// thread: on the main queue it stores the event at once; from any other thread it posts
// the add to the main queue and returns before the event is stored, so events from other
// threads arrive in the order of their posts. `events` and `onChange` belong to the main
// queue.
//
// `ActivityLog::shared()` is the application's log, made on first use from
// ActivityStore::defaultURL() and the process's MainQueue::main(). It is never destroyed;
// at exit it waits for its last save. Tests make their own with `make`.
//
//   ActivityLog::shared().add({ActivityEvent::Kind::piece, "report.pdf", "Retired"});
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "core/base/main_queue.h"
#include "core/hub/activity.h"

namespace zorvane {

class ActivityLog : public std::enable_shared_from_this<ActivityLog> {
 public:
  // The application's log (see above).
  static ActivityLog& shared();

  // A log on the store at `url` (a file path), living on `queue`, which must outlive it.
  static std::shared_ptr<ActivityLog> make(std::string url, MainQueue& queue);

  ActivityLog(const ActivityLog&) = delete;
  ActivityLog& operator=(const ActivityLog&) = delete;

  // Stores the event now on the main queue, else posts it there. A post that runs after
  // the log is gone is dropped.
  void add(ActivityEvent event);

  // Newest first. Main queue only.
  [[nodiscard]] const std::vector<ActivityEvent>& events() const { return store_.events(); }

  // Called on the main queue after each event is stored.
  std::function<void()> onChange;

  // Blocks until every event stored so far is on disk. Events still posted from other
  // threads are not waited for.
  void flush() { store_.flush(); }

 private:
  ActivityLog(std::string url, MainQueue& queue);
  void store(ActivityEvent event);

  MainQueue& queue_;
  ActivityStore store_;
};

}  // namespace zorvane
