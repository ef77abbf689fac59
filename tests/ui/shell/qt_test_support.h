// What the shell tests share: waiting on Qt's event loop for something to happen, and a
// Qt application to run on.
#pragma once

#include <QCoreApplication>
#include <QElapsedTimer>

#include <functional>
#include <memory>
#include <string>

#include "ui/ink_test_scenes.h"

namespace zorvane::testing {

// Turns the event loop until `done` holds; false after `timeoutMs`.
inline bool waitFor(const std::function<bool()>& done, int timeoutMs = 10000) {
  QElapsedTimer clock;
  clock.start();
  while (!done()) {
    if (clock.elapsed() > timeoutMs) return false;
    QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents, 20);
  }
  return true;
}

// A Qt application to run on: with a display, the process's GUI application (made once,
// for good, shared with the GUI tests: one made and destroyed before it would leave Qt's
// global state half torn down, accessibility among it); without one, a QCoreApplication
// for the life of this object, so code that needs only an event loop is tested anyway.
class ScopedCoreApplication {
 public:
  ScopedCoreApplication() {
    std::string why;
    if (!ensureGuiApplication(why)) own_ = std::make_unique<QCoreApplication>(argc_, argv_);
  }

 private:
  int argc_ = 1;
  char name_[17] = "zorvane_ui_tests";
  char* argv_[2] = {name_, nullptr};
  std::unique_ptr<QCoreApplication> own_;
};

}  // namespace zorvane::testing
