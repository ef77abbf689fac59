#include "ui/shell/qt_main_queue.h"

#include <QThread>
#include <QTimer>

#include <algorithm>
#include <cmath>
#include <limits>

namespace zorvane {

QtMainQueue::QtMainQueue() = default;

QtMainQueue::~QtMainQueue() {
  // The QTimers are children of context_ and go with it.
  std::lock_guard lock(mutex_);
  timers_.clear();
}

void QtMainQueue::post(Task task) {
  // Queued events to one receiver are delivered in the order they were posted, from
  // whichever thread.
  QMetaObject::invokeMethod(&context_, std::move(task), Qt::QueuedConnection);
}

TimerID QtMainQueue::after(double seconds, Task task) { return arm(seconds, false, std::move(task)); }

TimerID QtMainQueue::every(double seconds, Task task) { return arm(seconds, true, std::move(task)); }

TimerID QtMainQueue::arm(double seconds, bool repeats, Task task) {
  constexpr double kMaxMilliseconds = std::numeric_limits<int>::max();
  double milliseconds = std::isfinite(seconds) ? std::clamp(seconds * 1000, 0.0, kMaxMilliseconds) : kMaxMilliseconds;
  TimerID id = nextTimer_++;
  {
    std::lock_guard lock(mutex_);
    timers_[id] = Timer{std::make_shared<Task>(std::move(task)), repeats, int(std::lround(milliseconds))};
  }
  if (isCurrent())
    start(id);
  else
    QMetaObject::invokeMethod(&context_, [this, id] { start(id); }, Qt::QueuedConnection);
  return id;
}

void QtMainQueue::start(TimerID id) {
  std::lock_guard lock(mutex_);
  auto found = timers_.find(id);
  if (found == timers_.end()) return;  // cancelled before it could start
  auto* timer = new QTimer(&context_);
  timer->setTimerType(Qt::PreciseTimer);
  timer->setSingleShot(!found->second.repeats);
  QObject::connect(timer, &QTimer::timeout, &context_, [this, id] { fire(id); });
  timer->start(found->second.milliseconds);
  found->second.timer = timer;
}

void QtMainQueue::fire(TimerID id) {
  std::shared_ptr<Task> task;
  {
    std::lock_guard lock(mutex_);
    auto found = timers_.find(id);
    if (found == timers_.end()) return;  // cancelled, perhaps while already due
    task = found->second.task;
    if (!found->second.repeats) {
      discard(found->second.timer);
      timers_.erase(found);
    }
  }
  (*task)();
}

void QtMainQueue::cancel(TimerID id) {
  QTimer* timer = nullptr;
  {
    std::lock_guard lock(mutex_);
    auto found = timers_.find(id);
    if (found == timers_.end()) return;
    timer = found->second.timer;
    timers_.erase(found);
  }
  if (!timer) return;  // never started: its start finds nothing to start
  if (isCurrent())
    discard(timer);
  else
    QMetaObject::invokeMethod(&context_, [timer] { discard(timer); }, Qt::QueuedConnection);
}

bool QtMainQueue::isCurrent() const { return QThread::currentThread() == context_.thread(); }

// Stops a timer and deletes it once control is back in the event loop: the timer may be
// the one whose timeout is running now.
void QtMainQueue::discard(QTimer* timer) {
  timer->stop();
  timer->deleteLater();
}

}  // namespace zorvane
