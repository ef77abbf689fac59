// QtMainQueue: the MainQueue of the desktop application, run by Qt's event loop.
//
// Made on the GUI thread once the QCoreApplication exists; its tasks run on that thread
// whenever the application's event loop (or a nested one) turns. It owns the QTimers of
// its timers and a context object that receives the posted tasks; both go with it, and
// tasks or timers still pending then never run.
//
// Guarantees, beyond MainQueue's:
//   - `post` from any thread queues the task to the GUI thread; posts run in the order
//     the `post` calls were made;
//   - `after` and `every` use precise timers. Armed from another thread, the timer is
//     started by a hop to the GUI thread, but the returned id is valid at once: a
//     `cancel` before the hop still keeps the task from ever running;
//   - `cancel` is idempotent, may name an unknown or finished timer, and may be called
//     from inside the timer's own task.
#pragma once

#include <QObject>

#include <atomic>
#include <memory>
#include <mutex>
#include <unordered_map>

#include "core/base/main_queue.h"

class QTimer;

namespace zorvane {

class QtMainQueue final : public MainQueue {
 public:
  QtMainQueue();
  ~QtMainQueue() override;
  QtMainQueue(const QtMainQueue&) = delete;
  QtMainQueue& operator=(const QtMainQueue&) = delete;

  void post(Task task) override;
  TimerID after(double seconds, Task task) override;
  TimerID every(double seconds, Task task) override;
  void cancel(TimerID timer) override;
  bool isCurrent() const override;

 private:
  // A timer that may still run. Whoever takes a Timer out of `timers_` owns its QTimer
  // and deletes it on the GUI thread.
  struct Timer {
    std::shared_ptr<Task> task;
    bool repeats = false;
    int milliseconds = 0;
    QTimer* timer = nullptr;  // set on the GUI thread once started
  };

  TimerID arm(double seconds, bool repeats, Task task);
  void start(TimerID id);  // GUI thread
  void fire(TimerID id);   // GUI thread
  static void discard(QTimer* timer);

  QObject context_;  // lives on the GUI thread; receives the posted tasks
  std::mutex mutex_;
  std::unordered_map<TimerID, Timer> timers_;
  std::atomic<TimerID> nextTimer_{1};
};

}  // namespace zorvane
