#include "core/base/run_loop.h"

#include <algorithm>

namespace zorvane {

RunLoop::RunLoop(std::shared_ptr<Clock> clock) : clock_(std::move(clock)) {}

RunLoop::~RunLoop() = default;

void RunLoop::post(Task task) {
  {
    std::lock_guard lock(mutex_);
    tasks_.push_back(std::move(task));
  }
  wake_.notify_one();
}

TimerID RunLoop::after(double seconds, Task task) { return arm(seconds, 0, std::move(task)); }

TimerID RunLoop::every(double seconds, Task task) {
  // A zero interval would spin the loop; the smallest interval is one millisecond.
  return arm(seconds, seconds > 0.001 ? seconds : 0.001, std::move(task));
}

TimerID RunLoop::arm(double seconds, double interval, Task task) {
  TimerID id;
  {
    std::lock_guard lock(mutex_);
    id = nextTimer_++;
    double due = clock_->now() + (seconds > 0 ? seconds : 0);
    auto key = std::make_pair(due, id);
    timers_.emplace(key, Timer{id, due, interval, std::make_shared<Task>(std::move(task))});
    timerKeys_.emplace(id, key);
  }
  wake_.notify_one();
  return id;
}

void RunLoop::cancel(TimerID timer) {
  std::lock_guard lock(mutex_);
  auto it = timerKeys_.find(timer);
  if (it == timerKeys_.end()) return;
  timers_.erase(it->second);
  timerKeys_.erase(it);
}

bool RunLoop::isCurrent() const { return thread_.load() == std::this_thread::get_id(); }

void RunLoop::claimThread() { thread_.store(std::this_thread::get_id()); }

bool RunLoop::takeNext(Task& out) {
  if (!tasks_.empty()) {
    out = std::move(tasks_.front());
    tasks_.pop_front();
    return true;
  }
  if (timers_.empty()) return false;
  auto first = timers_.begin();
  if (first->second.due > clock_->now()) return false;
  Timer timer = std::move(first->second);
  timers_.erase(first);
  timerKeys_.erase(timer.id);
  if (timer.interval > 0) {
    // Re-arm before running, so the task may cancel its own timer.
    double due = timer.due + timer.interval;
    double now = clock_->now();
    if (due <= now) due = now + timer.interval;  // skip missed beats instead of bursting
    auto key = std::make_pair(due, timer.id);
    timerKeys_.emplace(timer.id, key);
    timers_.emplace(key, Timer{timer.id, due, timer.interval, timer.task});
  }
  // The task is shared with a repeating timer's next beat; run a copy of the handle so a
  // cancel during the run can't destroy the function being executed.
  out = [task = timer.task] { (*task)(); };
  return true;
}

size_t RunLoop::runUntilIdle() {
  claimThread();
  size_t count = 0;
  // A repeating timer is re-armed at least one interval ahead of the clock, so this
  // ends even with a fake clock that never moves.
  for (;;) {
    Task task;
    {
      std::lock_guard lock(mutex_);
      if (!takeNext(task)) break;
    }
    task();
    ++count;
  }
  return count;
}

void RunLoop::run() {
  claimThread();
  for (;;) {
    Task task;
    {
      std::unique_lock lock(mutex_);
      for (;;) {
        if (quit_) {
          quit_ = false;
          return;
        }
        if (takeNext(task)) break;
        if (timers_.empty()) {
          wake_.wait(lock);
          continue;
        }
        double wait = timers_.begin()->second.due - clock_->now();
        wake_.wait_for(lock, std::chrono::duration<double>(wait > 0 ? wait : 0));
      }
    }
    task();
  }
}

void RunLoop::quit() {
  {
    std::lock_guard lock(mutex_);
    quit_ = true;
  }
  wake_.notify_all();
}

bool RunLoop::runUntil(const std::function<bool()>& done, double timeoutSeconds) {
  claimThread();
  using clock = std::chrono::steady_clock;
  // The condition may change without any task running (a child reaped, a file written
  // by another process), so it is also checked at this pace while the loop is idle.
  constexpr auto kRecheck = std::chrono::milliseconds(10);
  auto deadline = clock::now() + std::chrono::duration_cast<clock::duration>(
                                     std::chrono::duration<double>(timeoutSeconds));
  for (;;) {
    if (done()) return true;
    if (clock::now() >= deadline) return false;
    Task task;
    {
      std::unique_lock lock(mutex_);
      if (!takeNext(task)) {
        auto wait = std::min<clock::duration>(deadline - clock::now(), kRecheck);
        if (!timers_.empty()) {
          double untilTimer = timers_.begin()->second.due - clock_->now();
          auto timerWait = std::chrono::duration_cast<clock::duration>(
              std::chrono::duration<double>(untilTimer > 0 ? untilTimer : 0));
          wait = std::min(wait, timerWait);
        }
        if (wait > clock::duration::zero()) wake_.wait_for(lock, wait);
        continue;
      }
    }
    task();
  }
}

}  // namespace zorvane
