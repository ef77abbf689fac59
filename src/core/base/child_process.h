// ChildProcess: one outside program, started with posix_spawn and three pipes.
//
// Owned by a std::shared_ptr (use `create`). Callbacks are set before `start()` and are
// always called on the MainQueue given at creation, never on the threads that read the
// pipes:
//   onStdout / onStderr   each chunk of bytes as read (no line splitting here);
//   onExit                once, with the termination status (the exit code, or 128 plus
//                         the signal number), after the output chunks that were read
//                         before the pipes closed.
// Each pipe has a reader thread and the child a reaper thread; they hold no reference to
// this object, only a weak one for their posts, so the object may be dropped while the
// child runs. Once the object is gone they post nothing more, so a queue only has to
// outlive the ChildProcess objects made on it, not their threads. Dropping it sends
// SIGTERM to a child still running; the reaper still waits for it, so no zombie is left.
// Every descriptor is opened close-on-exec, so no child inherits another's pipes.
//
// A child started with `ownProcessGroup` leads a process group of its own, and every
// signal it is sent goes to the whole group: what a shell command starts (a pipeline,
// a job in the background) ends with it when it is stopped. Signals are sent only while
// the child has not been collected: until then its process id, which is the group's id,
// can't be given to another process, so no signal can reach a stranger.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/base/environment.h"
#include "core/base/expected.h"
#include "core/base/main_queue.h"

namespace zorvane {

class ChildProcess : public std::enable_shared_from_this<ChildProcess> {
 public:
  struct Options {
    std::string executable;               // path of the program; argument 0 is this path
    std::vector<std::string> arguments;   // the rest of the argument list, passed unchanged
    std::string workingDirectory;         // empty: this process's current directory
    std::optional<Environment> environment;  // absent: this process's environment
    bool stdinFromNullDevice = false;     // no stdin pipe; the child reads /dev/null
    bool stderrToStdout = false;          // one pipe for both, in the order written
    bool ownProcessGroup = false;         // leads a new process group; signals reach all of it
  };

  static std::shared_ptr<ChildProcess> create(Options options,
                                              MainQueue& queue = MainQueue::main());
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  std::function<void(std::string)> onStdout;
  std::function<void(std::string)> onStderr;
  std::function<void(int)> onExit;

  // Launches the child. Fails with "Couldn't start <program>: <reason>" and starts
  // nothing; a second call fails too.
  [[nodiscard]] Expected<void> start();

  // Writes all of `bytes` to the child's standard input. False if the child isn't
  // running, has no stdin pipe, or the write failed (the child closed its end).
  bool write(std::string_view bytes);
  void closeStdin();

  // Sends SIGTERM (or SIGKILL) to a running child (its group, see above); nothing
  // otherwise.
  void terminate();
  void kill();

  // Ends a running child: SIGTERM now, SIGKILL after `graceSeconds` if it still runs
  // (the timer is on the queue given at creation). With `ownProcessGroup` both go to
  // the group, and whatever of the group is still there when the child itself has ended
  // is killed before the child is collected.
  void stop(double graceSeconds);

  bool isRunning() const;
  pid_t pid() const { return pid_; }
  const Options& options() const { return options_; }

 private:
  ChildProcess(Options options, MainQueue& queue);
  void signal(int number);

  struct Shared;
  Options options_;
  pid_t pid_ = -1;
  int stdinFd_ = -1;
  bool started_ = false;
  std::shared_ptr<Shared> shared_;
};

}  // namespace zorvane
