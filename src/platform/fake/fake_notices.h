// FakeNotices: keeps the notices shown; with `available` false there is no service and
// each notice fails, as on a desktop without one.
#pragma once

#include <vector>

#include "platform/notices.h"

namespace zorvane {

class FakeNotices final : public Notices {
 public:
  struct Notice {
    std::string title, body;
  };
  std::vector<Notice> shown;
  bool available = true;

  void notify(const std::string& title, const std::string& body,
              std::function<void(Expected<void>)> done = {}) override {
    if (available) shown.push_back({title, body});
    if (done) done(available ? ok() : Expected<void>(Failure{"notices: no notification service"}));
  }

  // The user clicks a notice.
  void click() {
    if (onActivated) onActivated();
  }
};

}  // namespace zorvane
