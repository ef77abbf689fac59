// MainQueue: the one queue on which all of the program's state lives.
//
// Work that runs elsewhere (pipe readers, process reapers, socket threads) never touches
// shared state; it posts a task here. Guarantees every implementation gives:
//   - `post`, `after`, `every` and `cancel` may be called from any thread;
//   - tasks run one at a time on the queue's thread, posted tasks in FIFO order;
//   - timers due at the same moment run in the order they were armed;
//   - a cancelled timer never runs again, even if it was already due.
//
// The process has one current main queue (`MainQueue::main()`), set by the run mode
// that owns the thread: the command-line modes use a RunLoop, the desktop application a
// toolkit-backed queue. Tests make their own RunLoop and pass it in.
#pragma once

#include <cstdint>
#include <functional>

namespace zorvane {

using Task = std::function<void()>;
using TimerID = uint64_t;

class MainQueue {
 public:
  virtual ~MainQueue() = default;

  virtual void post(Task task) = 0;
  // Runs `task` once, `seconds` from now. The id cancels it.
  virtual TimerID after(double seconds, Task task) = 0;
  // Runs `task` every `seconds` until cancelled; the first run is `seconds` from now.
  virtual TimerID every(double seconds, Task task) = 0;
  virtual void cancel(TimerID timer) = 0;
  // Whether the caller is running on this queue's thread.
  virtual bool isCurrent() const = 0;

  // The process's current main queue. Aborts if none was set: every run mode sets one
  // before it builds anything that posts.
  static MainQueue& main();
  static void setMain(MainQueue* queue);
};

}  // namespace zorvane
