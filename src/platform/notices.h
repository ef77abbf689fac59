// Notices: short messages to the user from the desktop's notification service, for
// events nobody was watching (a scheduled run that ended, one that needs an OK).
// DBusNotices in linux/ (org.freedesktop.Notifications), FakeNotices in fake/.
//
//   notices->onActivated = [this] { hub->show(HubTab::schedules); };
//   notices->notify("“Backup” needs your OK", "Delete 3 files in ~/old");
//
// Best effort: without a notification service nothing is shown, the log says so once,
// and nothing waits for long. `done`, when given, tells on the main queue whether the
// service took the notice. `onActivated` runs on the main queue when the user clicks one
// of this program's notices. Nothing runs after the object is destroyed.
#pragma once

#include <functional>
#include <string>

#include "core/base/expected.h"

namespace zorvane {

class Notices {
 public:
  virtual ~Notices() = default;

  std::function<void()> onActivated;

  virtual void notify(const std::string& title, const std::string& body,
                      std::function<void(Expected<void>)> done = {}) = 0;
};

}  // namespace zorvane
