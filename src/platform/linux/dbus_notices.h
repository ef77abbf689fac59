// DBusNotices: notices through org.freedesktop.Notifications on the session bus, on a
// D-Bus worker thread of their own (DBusWorker).
//
// Each notice carries the default action, so a click on it comes back as ActionInvoked
// and runs `onActivated`. The body is escaped when the service says it reads markup
// (its "body-markup" capability, asked once per connection), so a file name with "<" or
// "&" shows as written. No service, or none that answers within the call's time-out:
// `done` gets the reason, and the log gets one line until notices work again.
#pragma once

#include <memory>
#include <string>

#include "core/base/main_queue.h"
#include "platform/notices.h"

namespace zorvane {

class DBusNotices final : public Notices {
 public:
  struct Options {
    std::string busAddress;  // "" for the session bus of the environment
    std::string service = "org.freedesktop.Notifications";
    int callTimeoutMilliseconds = 5000;
  };
  explicit DBusNotices(MainQueue& queue = MainQueue::main());
  DBusNotices(MainQueue& queue, Options options);
  ~DBusNotices() override;

  void notify(const std::string& title, const std::string& body,
              std::function<void(Expected<void>)> done = {}) override;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace zorvane
