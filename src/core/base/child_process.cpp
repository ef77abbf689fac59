#include "core/base/child_process.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <thread>

namespace zorvane {

// State the reader and reaper threads share with the object. The object may be gone
// while they still run, so they never touch it except through a weak pointer on the
// main queue.
struct ChildProcess::Shared {
  std::mutex mutex;
  std::condition_variable changed;
  bool running = false;  // true from spawn until the child is waited for
  bool stopping = false;  // stop() was called: the group's leftovers die with the child
  int readersOpen = 0;
  MainQueue* queue = nullptr;  // cleared when the object goes, so a late post goes nowhere

  void post(Task task) {
    std::lock_guard lock(mutex);
    if (queue != nullptr) queue->post(std::move(task));
  }
};

// How long the reaper waits for the pipes to drain after the child is gone. A grandchild
// that inherited the output pipe can keep it open forever; the exit is reported anyway.
static constexpr auto kDrainLimit = std::chrono::seconds(2);

static void ignoreSIGPIPE() {
  static std::once_flag once;
  std::call_once(once, [] { ::signal(SIGPIPE, SIG_IGN); });
}

std::shared_ptr<ChildProcess> ChildProcess::create(Options options, MainQueue& queue) {
  return std::shared_ptr<ChildProcess>(new ChildProcess(std::move(options), queue));
}

ChildProcess::ChildProcess(Options options, MainQueue& queue)
    : options_(std::move(options)), shared_(std::make_shared<Shared>()) {
  shared_->queue = &queue;
}

ChildProcess::~ChildProcess() {
  terminate();
  closeStdin();
  std::lock_guard lock(shared_->mutex);
  shared_->queue = nullptr;
}

bool ChildProcess::isRunning() const {
  std::lock_guard lock(shared_->mutex);
  return shared_->running;
}

void ChildProcess::signal(int number) {
  // Under the lock the reaper can't have collected the child yet, so the pid is still
  // ours and can't have been reused by another process.
  std::lock_guard lock(shared_->mutex);
  if (shared_->running) ::kill(options_.ownProcessGroup ? -pid_ : pid_, number);
}

void ChildProcess::terminate() { signal(SIGTERM); }
void ChildProcess::kill() { signal(SIGKILL); }

void ChildProcess::stop(double graceSeconds) {
  MainQueue* queue = nullptr;
  {
    std::lock_guard lock(shared_->mutex);
    if (!shared_->running) return;
    shared_->stopping = true;
    ::kill(options_.ownProcessGroup ? -pid_ : pid_, SIGTERM);
    queue = shared_->queue;  // set until this object goes, and it is here
  }
  queue->after(graceSeconds, [weak = weak_from_this()] {
    if (auto self = weak.lock()) self->kill();
  });
}

void ChildProcess::closeStdin() {
  if (stdinFd_ < 0) return;
  ::close(stdinFd_);
  stdinFd_ = -1;
}

bool ChildProcess::write(std::string_view bytes) {
  if (stdinFd_ < 0 || !isRunning()) return false;
  while (!bytes.empty()) {
    ssize_t n = ::write(stdinFd_, bytes.data(), bytes.size());
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    bytes.remove_prefix(static_cast<size_t>(n));
  }
  return true;
}

namespace {

// Closes whatever descriptors it still holds when it goes out of scope.
struct PipePair {
  int read = -1;
  int write = -1;
  ~PipePair() {
    if (read >= 0) ::close(read);
    if (write >= 0) ::close(write);
  }
  bool open() {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) return false;
    read = fds[0];
    write = fds[1];
    return true;
  }
  int take(int& fd) { return std::exchange(fd, -1); }
};

struct SpawnSetup {
  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attributes;
  SpawnSetup() {
    posix_spawn_file_actions_init(&actions);
    posix_spawnattr_init(&attributes);
  }
  ~SpawnSetup() {
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
  }
};

}  // namespace

Expected<void> ChildProcess::start() {
  const std::string failurePrefix = "Couldn't start " + options_.executable + ": ";
  if (started_) return Failure{failurePrefix + "it was already started"};
  started_ = true;
  ignoreSIGPIPE();
  if (!options_.workingDirectory.empty()) {
    struct stat info {};
    if (::stat(options_.workingDirectory.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) {
      return Failure{failurePrefix + "the folder " + options_.workingDirectory + " doesn't exist"};
    }
  }

  PipePair in, out, err;
  if ((!options_.stdinFromNullDevice && !in.open()) || !out.open() || !err.open()) {
    return Failure{failurePrefix + strerror(errno)};
  }

  SpawnSetup setup;
  if (options_.stdinFromNullDevice) {
    posix_spawn_file_actions_addopen(&setup.actions, 0, "/dev/null", O_RDONLY, 0);
  } else {
    posix_spawn_file_actions_adddup2(&setup.actions, in.read, 0);
  }
  posix_spawn_file_actions_adddup2(&setup.actions, out.write, 1);
  posix_spawn_file_actions_adddup2(&setup.actions, options_.stderrToStdout ? out.write : err.write, 2);
  if (!options_.workingDirectory.empty()) {
    posix_spawn_file_actions_addchdir_np(&setup.actions, options_.workingDirectory.c_str());
  }
  // The child starts with no blocked signals and default dispositions, whatever this
  // process ignores (SIGPIPE in particular).
  sigset_t empty, defaults;
  sigemptyset(&empty);
  sigemptyset(&defaults);
  for (int s : {SIGPIPE, SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGCHLD, SIGUSR1, SIGUSR2, SIGALRM}) {
    sigaddset(&defaults, s);
  }
  posix_spawnattr_setsigmask(&setup.attributes, &empty);
  posix_spawnattr_setsigdefault(&setup.attributes, &defaults);
  short flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
  if (options_.ownProcessGroup) {
    // Group id = the child's pid, set before it runs anything, so a signal sent as
    // soon as spawn returns already reaches the whole group.
    posix_spawnattr_setpgroup(&setup.attributes, 0);
    flags |= POSIX_SPAWN_SETPGROUP;
  }
  posix_spawnattr_setflags(&setup.attributes, flags);

  std::vector<std::string> argvStore;
  argvStore.reserve(options_.arguments.size() + 1);
  argvStore.push_back(options_.executable);
  argvStore.insert(argvStore.end(), options_.arguments.begin(), options_.arguments.end());
  std::vector<char*> argv;
  for (auto& a : argvStore) argv.push_back(a.data());
  argv.push_back(nullptr);

  Environment environment = options_.environment ? *options_.environment : Environment::current();
  std::vector<std::string> envStore = environment.entries();
  std::vector<char*> envp;
  for (auto& e : envStore) envp.push_back(e.data());
  envp.push_back(nullptr);

  pid_t pid = -1;
  {
    // Holding the lock across the spawn keeps a racing signal() from seeing a
    // half-made state.
    std::lock_guard lock(shared_->mutex);
    int rc = posix_spawn(&pid, options_.executable.c_str(), &setup.actions, &setup.attributes,
                         argv.data(), envp.data());
    if (rc != 0) return Failure{failurePrefix + strerror(rc)};
    pid_ = pid;
    shared_->running = true;
    shared_->readersOpen = 2;
  }

  // The child's ends belong to the child now.
  if (in.read >= 0) ::close(in.take(in.read));
  ::close(out.take(out.write));
  ::close(err.take(err.write));
  if (!options_.stdinFromNullDevice) stdinFd_ = in.take(in.write);

  std::weak_ptr<ChildProcess> weak = weak_from_this();
  auto shared = shared_;

  auto startReader = [&](int fd, bool isStdout) {
    std::thread([fd, isStdout, weak, shared] {
      char buffer[65536];
      for (;;) {
        ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        shared->post([weak, isStdout, chunk = std::string(buffer, static_cast<size_t>(n))]() mutable {
          auto self = weak.lock();
          if (!self) return;
          auto& handler = isStdout ? self->onStdout : self->onStderr;
          if (handler) handler(std::move(chunk));
        });
      }
      ::close(fd);
      std::lock_guard lock(shared->mutex);
      --shared->readersOpen;
      shared->changed.notify_all();
    }).detach();
  };
  startReader(out.take(out.read), true);
  startReader(err.take(err.read), false);

  std::thread([pid, group = options_.ownProcessGroup, weak, shared] {
    // Wait without collecting first, so signal() can't hit a reused pid.
    siginfo_t info{};
    while (waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT) != 0 && errno == EINTR) {
    }
    int status = 0;
    {
      std::lock_guard lock(shared->mutex);
      // The group of a stopped child may outlive it (a job it put in the background);
      // its id is still held by the uncollected child, so this reaches only the group.
      if (group && shared->stopping) ::kill(-pid, SIGKILL);
      while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
      }
      shared->running = false;
    }
    int code = WIFEXITED(status) ? WEXITSTATUS(status) : WIFSIGNALED(status) ? 128 + WTERMSIG(status) : 0;
    {
      std::unique_lock lock(shared->mutex);
      shared->changed.wait_for(lock, kDrainLimit, [&] { return shared->readersOpen == 0; });
    }
    shared->post([weak, code] {
      auto self = weak.lock();
      if (!self) return;
      if (auto handler = std::exchange(self->onExit, {})) handler(code);
    });
  }).detach();

  return ok();
}

}  // namespace zorvane
