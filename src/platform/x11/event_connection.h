// EventConnection: an Xlib connection of its own, read by a thread of its own, for the
// services that wait on X events (launch watcher, hot key, input monitor) and must not
// hold up the main queue's connection.
//
// The connection belongs to its reader thread: after `open`, only that thread makes
// Xlib calls on it. Other threads hand it work with `call`, which runs a function there
// and waits for it. The thread hands every event it reads to `onEvent`, and calls
// `afterEvents` once the events that were waiting have been handed over (for work done
// once per batch, such as one pointer query for many motions). Both run on the reader
// thread; they post to the main queue what callers must see.
//
// X errors on this connection never reach the process-wide handler (whose default ends
// the process): they are kept here, per connection, and `errorSince` hands them out.
// A connection the server closes ends the reader thread with one log line, and Xlib is
// not called on it again (its default answer to a closed connection is to end the
// process). A server that dies in the middle of a call made here still ends the process:
// that is Xlib's rule, as for every other connection of the program.
//
// Destroying the object stops the thread (it is woken, not waited out) and closes the
// connection; no handler runs after the destructor returns.
#pragma once

#include <X11/Xlib.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "core/base/expected.h"

namespace zorvane {

struct EventConnectionError {
  int code = 0;           // BadAccess, BadWindow, ...
  int requestCode = 0;    // the major opcode of the failed request
  unsigned long serial = 0;
};

class EventConnection {
 public:
  // Opens `displayName`, or $DISPLAY when empty. `name` names the thread's owner in log
  // lines ("hot key"). Fails when no display can be reached.
  [[nodiscard]] static Expected<std::unique_ptr<EventConnection>> open(std::string name,
                                                                       const std::string& displayName = "");
  ~EventConnection();
  EventConnection(const EventConnection&) = delete;
  EventConnection& operator=(const EventConnection&) = delete;

  // Set before `start`; run on the reader thread.
  std::function<void(XEvent&)> onEvent;
  std::function<void()> afterEvents;

  // Starts the reader thread. Work passed to `call` before this runs on the caller's thread.
  void start();

  // Runs `work` on the reader thread (at once when called from it) and waits for it.
  // Fails when the connection was lost, or the thread didn't get to it within
  // `timeoutSeconds`; the work may then still run later, so it must hold what it uses.
  [[nodiscard]] Expected<void> call(std::function<void(Display*)> work, double timeoutSeconds = 5.0);

  // For the reader thread (or work run by `call`) only.
  Display* display() const { return display_; }
  Window root() const { return DefaultRootWindow(display_); }
  // The serial of the next request; `errorSince(mark)` syncs and returns the errors of
  // requests sent from the mark on, forgetting all recorded errors.
  unsigned long errorMark() const { return NextRequest(display_); }
  std::vector<EventConnectionError> errorSince(unsigned long mark);

  bool isReaderThread() const { return std::this_thread::get_id() == thread_.get_id(); }

 private:
  EventConnection(std::string name, Display* display);
  void run();
  void runPendingWork();
  void wake();
  friend struct EventConnectionHooks;  // the Xlib error hooks, in the .cpp

  struct Work {
    std::function<void(Display*)> function;
    std::mutex mutex;
    std::condition_variable done;
    bool finished = false;
    bool ran = false;
  };

  std::string name_;
  Display* display_ = nullptr;
  int wakeFD_ = -1;
  std::thread thread_;
  std::atomic<bool> stopping_{false};
  std::atomic<bool> lost_{false};

  std::mutex workMutex_;
  std::deque<std::shared_ptr<Work>> work_;

  // Written by the error hook, which runs inside Xlib calls on the reader thread.
  std::vector<EventConnectionError> errors_;
};

}  // namespace zorvane
