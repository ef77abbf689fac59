#include "ui/shell/unix_signals.h"

#include <fcntl.h>
#include <unistd.h>

#include <QSocketNotifier>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <string>

#include "core/base/log.h"

namespace zorvane {

namespace {

// The pipe's write end, for the handler; -1 while no UnixSignals is installed. A
// lock-free atomic is safe to read in a signal handler.
std::atomic<int> writeEnd{-1};
static_assert(std::atomic<int>::is_always_lock_free);

extern "C" void writeSignalNumber(int number) {
  int saved = errno;
  int fd = writeEnd.load();
  if (fd >= 0) {
    auto byte = static_cast<unsigned char>(number);
    // Nothing to do if it fails: the pipe holds 64 KiB of unread signals already.
    [[maybe_unused]] ssize_t written = write(fd, &byte, 1);
  }
  errno = saved;
}

}  // namespace

UnixSignals::UnixSignals(std::function<void(int)> onSignal) : onSignal_(std::move(onSignal)) {
  if (pipe2(pipe_, O_CLOEXEC | O_NONBLOCK) != 0) {
    Log::info(std::string("signals: no pipe, so TERM, INT and HUP keep their default action: ") +
              std::strerror(errno));
    pipe_[0] = pipe_[1] = -1;
    return;
  }
  writeEnd.store(pipe_[1]);
  struct sigaction action = {};
  action.sa_handler = writeSignalNumber;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  for (size_t i = 0; i < std::size(kSignals); i++) sigaction(kSignals[i], &action, &previous_[i]);
  notifier_ = std::make_unique<QSocketNotifier>(pipe_[0], QSocketNotifier::Read);
  QObject::connect(notifier_.get(), &QSocketNotifier::activated, notifier_.get(), [this] { readSignals(); });
}

UnixSignals::~UnixSignals() {
  *alive_ = false;
  if (!notifier_) return;
  for (size_t i = 0; i < std::size(kSignals); i++) sigaction(kSignals[i], &previous_[i], nullptr);
  writeEnd.store(-1);
  // This may run inside the notifier's own signal: it goes once control is back in the
  // event loop, and watches nothing until then.
  notifier_->setEnabled(false);
  notifier_.release()->deleteLater();
  close(pipe_[0]);
  close(pipe_[1]);
}

void UnixSignals::readSignals() {
  // Off while a signal is handled: a nested event loop in the callback can't re-enter it.
  notifier_->setEnabled(false);
  std::shared_ptr<bool> alive = alive_;
  unsigned char number = 0;
  while (read(pipe_[0], &number, 1) == 1) {
    if (auto callback = onSignal_) callback(number);  // a copy: it may destroy this object
    if (!*alive) return;
  }
  notifier_->setEnabled(true);
}

}  // namespace zorvane
