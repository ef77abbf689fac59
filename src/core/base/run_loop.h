// RunLoop: a single-threaded MainQueue for the command-line modes and for tests.
//
// `run()` sits on the calling thread and executes posted tasks and due timers until
// `quit()`. Time comes from a Clock: the real monotonic clock by default, or a
// FakeClock in tests, where timers fire only when the test advances the clock and
// drives the loop with `runUntilIdle()`.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

#include "core/base/clock.h"
#include "core/base/main_queue.h"

namespace zorvane {

class RunLoop final : public MainQueue {
 public:
  explicit RunLoop(std::shared_ptr<Clock> clock = std::make_shared<SystemClock>());
  ~RunLoop() override;

  void post(Task task) override;
  TimerID after(double seconds, Task task) override;
  TimerID every(double seconds, Task task) override;
  void cancel(TimerID timer) override;
  bool isCurrent() const override;

  // Runs tasks and due timers, waiting for more, until quit() is called (from a task or
  // another thread). The calling thread becomes the queue's thread.
  void run();
  void quit();

  // Runs every task that is ready now and every timer already due, including those the
  // run itself makes ready, without waiting. Returns the number of tasks run.
  size_t runUntilIdle();

  // Runs the loop until `done()` holds, checking after every task and every 10 ms while
  // idle, for at most `timeoutSeconds` of real time. Returns whether `done()` held.
  bool runUntil(const std::function<bool()>& done, double timeoutSeconds);

 private:
  struct Timer {
    TimerID id;
    double due;
    double interval;  // 0 for one-shot
    std::shared_ptr<Task> task;
  };

  TimerID arm(double seconds, double interval, Task task);
  // Takes the next runnable unit (a posted task, else a due timer) under the lock.
  bool takeNext(Task& out);
  void claimThread();

  std::shared_ptr<Clock> clock_;
  mutable std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<Task> tasks_;
  std::map<std::pair<double, TimerID>, Timer> timers_;  // ordered by due time, then arming order
  std::map<TimerID, std::pair<double, TimerID>> timerKeys_;
  TimerID nextTimer_ = 1;
  bool quit_ = false;
  std::atomic<std::thread::id> thread_;
};

}  // namespace zorvane
