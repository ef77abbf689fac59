// Helpers for the tests that drive real applications on the headless desktop
// (scripts/headless-desktop.sh): start a program and read what it prints, wait for a
// condition or for its window, find the test programs.
//
//   auto app = DesktopApp::start({qtWidgetAppPath()});
//   auto line = app->waitForLine("window ", 10s);          // its first frame is up
//   size_t mark = app->lineCount();
//   ... click ...
//   ASSERT_TRUE(app->waitForLine("clicked Send", 5s, mark));
//
// A DesktopApp ends its process by pid when it goes out of scope (SIGTERM, then
// SIGKILL after a few seconds) and reaps it. Nothing here sleeps for a fixed time:
// waits end as soon as what they wait for is there.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/window_service.h"

namespace zorvane::testing {

class DesktopApp {
 public:
  // Starts `argv` (argv[0] is looked up in PATH) with this process's environment plus
  // `environment`. Its standard output is read line by line, its standard input is a
  // pipe for send(), its standard error is this process's. Nothing when it can't start.
  static std::unique_ptr<DesktopApp> start(std::vector<std::string> argv,
                                           std::map<std::string, std::string> environment = {});
  ~DesktopApp();
  DesktopApp(const DesktopApp&) = delete;
  DesktopApp& operator=(const DesktopApp&) = delete;

  pid_t pid() const { return pid_; }

  // The first output line at index `from` or later that starts with `prefix`, waiting
  // up to `timeout` for it to come; nothing on a timeout or when the output ended.
  std::optional<std::string> waitForLine(const std::string& prefix, std::chrono::milliseconds timeout,
                                         size_t from = 0);
  // How many lines came so far: a mark for waitForLine's `from`.
  size_t lineCount() const;
  std::vector<std::string> lines() const;

  // Writes one line (a newline is added) to the program's standard input.
  bool send(const std::string& line);

  // Ends the program now (SIGTERM, SIGKILL after `grace`) and reaps it.
  void stop(std::chrono::milliseconds grace = std::chrono::seconds(3));
  // False once the program has ended.
  bool running();

 private:
  DesktopApp() = default;
  void readOutput();

  pid_t pid_ = -1;
  int stdinFD_ = -1, stdoutFD_ = -1, wakeFD_[2] = {-1, -1};
  std::thread reader_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::string> lines_;
  std::string partial_;
  bool ended_ = false;  // the output reached its end
  bool reaped_ = false;
};

// Checks `condition` every few milliseconds until it holds (true) or `timeout` passes
// (false). For state that only changes on the other side of a socket (X, D-Bus).
bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds timeout);

// The first window of `pid`, front to back, that is on screen, waiting up to `timeout`
// for the window manager to show it.
std::optional<WindowInfo> waitForWindow(WindowService& windows, pid_t pid, std::chrono::milliseconds timeout);

// The Qt Widgets test window (tests/fixtures/qt_widget_app) in the build tree; "" when
// it wasn't built (no Qt Widgets).
std::string qtWidgetAppPath();

// The full path of a program in PATH; "" when it isn't installed.
std::string findProgram(const std::string& name);

}  // namespace zorvane::testing
