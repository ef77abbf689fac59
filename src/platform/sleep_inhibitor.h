// SleepInhibitor: keeps the machine from going to sleep while this program works on a
// task nobody watches. DBusSleepInhibitor in linux/, FakeSleepInhibitor in fake/.
//
//   inhibitor->acquire("Zorvane is working on a task");
//   ...
//   inhibitor->release();
//
// Counted: the first `acquire` asks the desktop, the `release` that matches the last
// acquire gives the request back; acquires and releases in between only count. Best
// effort: when no service of the desktop grants it the machine may sleep, the log says
// why once, and the state tells. A request is taken back when the object is destroyed.
// Lives on the main queue; `onChange` runs there.
#pragma once

#include <functional>
#include <string>

namespace zorvane {

enum class SleepHold {
  released,     // nobody asks
  asking,       // asked; no answer yet
  held,         // a service of the desktop keeps the machine awake
  unavailable,  // asked, but no service granted it
};

class SleepInhibitor {
 public:
  virtual ~SleepInhibitor() = default;

  std::function<void(SleepHold)> onChange;

  // `reason` is shown by desktops that list what keeps the machine awake; the first
  // acquire's is used.
  virtual void acquire(const std::string& reason) = 0;
  // A release without an acquire is ignored.
  virtual void release() = 0;
  virtual SleepHold state() const = 0;
};

}  // namespace zorvane
