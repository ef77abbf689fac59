// UnixSignals: turns SIGTERM, SIGINT, SIGHUP and SIGUSR1 into a call on the GUI thread,
// so the application can quit the way it quits from its menu (saving, ending its
// children), and be asked to write out what it shows.
//
// The handler does the one thing a signal handler may: it writes the signal's number
// to a pipe. A QSocketNotifier on the other end reads it in the event loop and calls
// `onSignal(number)`, once per signal received, in order. While `onSignal` runs (even if
// it turns a nested event loop) the next signal waits: it is delivered after the call
// returns, never inside it.
//
// One object at a time per process; made and destroyed on the GUI thread, after the
// QCoreApplication. Destroying it puts back the handlers that were there before.
#pragma once

#include <csignal>
#include <functional>
#include <iterator>
#include <memory>

class QSocketNotifier;

namespace zorvane {

class UnixSignals final {
 public:
  explicit UnixSignals(std::function<void(int signal)> onSignal);
  ~UnixSignals();
  UnixSignals(const UnixSignals&) = delete;
  UnixSignals& operator=(const UnixSignals&) = delete;

  // Whether the pipe and the handlers were set up (false when the pipe could not be made).
  bool isInstalled() const { return notifier_ != nullptr; }

 private:
  void readSignals();

  static constexpr int kSignals[] = {SIGTERM, SIGINT, SIGHUP, SIGUSR1};

  std::function<void(int)> onSignal_;
  int pipe_[2] = {-1, -1};
  struct sigaction previous_[std::size(kSignals)] = {};
  std::unique_ptr<QSocketNotifier> notifier_;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace zorvane
