// DBusSleepInhibitor: keeps the machine awake through the desktop's D-Bus services, each
// on a D-Bus worker thread of its own (DBusWorker):
//   1. org.freedesktop.ScreenSaver.Inhibit on the session bus (desktops with a power
//      manager honour it; the cookie it returns is given back with UnInhibit);
//   2. else logind's Inhibit("sleep:idle", ..., "block") on the system bus, which hands
//      over a descriptor: the request holds while it is open, and closing it gives the
//      request back.
// Neither answering within the call's time-out: the state becomes `unavailable` and the
// log says why, once (again only after a request was granted in between).
//
// A request answered after it was no longer wanted (released meanwhile, or the object
// gone) is given back at once. See platform/sleep_inhibitor.h.
#pragma once

#include <memory>
#include <string>

#include "core/base/main_queue.h"
#include "platform/sleep_inhibitor.h"

namespace zorvane {

class DBusSleepInhibitor final : public SleepInhibitor {
 public:
  struct Options {
    std::string sessionBusAddress;  // "" for the environment's buses
    std::string systemBusAddress;
    std::string screenSaverService = "org.freedesktop.ScreenSaver";
    int callTimeoutMilliseconds = 5000;
  };
  explicit DBusSleepInhibitor(MainQueue& queue = MainQueue::main());
  DBusSleepInhibitor(MainQueue& queue, Options options);
  ~DBusSleepInhibitor() override;

  void acquire(const std::string& reason) override;
  void release() override;
  SleepHold state() const override;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace zorvane
