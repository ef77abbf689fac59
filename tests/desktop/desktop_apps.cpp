#include "desktop/desktop_apps.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <utility>

extern char** environ;

namespace zorvane::testing {

using namespace std::chrono_literals;

std::unique_ptr<DesktopApp> DesktopApp::start(std::vector<std::string> argv,
                                              std::map<std::string, std::string> environment) {
  if (argv.empty()) return nullptr;
  // A program that died before a send() must not take the test with it.
  signal(SIGPIPE, SIG_IGN);
  int input[2], output[2];
  if (pipe2(input, O_CLOEXEC) != 0) return nullptr;
  if (pipe2(output, O_CLOEXEC) != 0) {
    close(input[0]);
    close(input[1]);
    return nullptr;
  }

  std::vector<std::string> variables;
  for (char** entry = environ; *entry; ++entry) {
    std::string text = *entry;
    std::string name = text.substr(0, text.find('='));
    if (!environment.count(name)) variables.push_back(text);
  }
  for (const auto& [name, value] : environment) variables.push_back(name + "=" + value);
  std::vector<char*> envp, args;
  for (std::string& v : variables) envp.push_back(v.data());
  envp.push_back(nullptr);
  for (std::string& a : argv) args.push_back(a.data());
  args.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
  pid_t pid = -1;
  int error = posix_spawnp(&pid, args[0], &actions, nullptr, args.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  close(input[0]);
  close(output[1]);
  if (error != 0) {
    close(input[1]);
    close(output[0]);
    return nullptr;
  }

  std::unique_ptr<DesktopApp> app(new DesktopApp());
  app->pid_ = pid;
  app->stdinFD_ = input[1];
  app->stdoutFD_ = output[0];
  if (pipe2(app->wakeFD_, O_CLOEXEC) != 0) app->wakeFD_[0] = app->wakeFD_[1] = -1;
  app->reader_ = std::thread([raw = app.get()] { raw->readOutput(); });
  return app;
}

DesktopApp::~DesktopApp() {
  stop();
  if (wakeFD_[1] >= 0) (void)!write(wakeFD_[1], "x", 1);
  if (reader_.joinable()) reader_.join();
  for (int fd : {stdinFD_, stdoutFD_, wakeFD_[0], wakeFD_[1]})
    if (fd >= 0) close(fd);
}

void DesktopApp::readOutput() {
  char buffer[4096];
  for (;;) {
    pollfd fds[2] = {{stdoutFD_, POLLIN, 0}, {wakeFD_[0], POLLIN, 0}};
    if (poll(fds, wakeFD_[0] >= 0 ? 2 : 1, -1) < 0) {
      if (errno == EINTR) continue;
      break;
    }
    if (fds[1].revents) break;  // the owner is going away
    ssize_t count = read(stdoutFD_, buffer, sizeof buffer);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    std::lock_guard lock(mutex_);
    partial_.append(buffer, static_cast<size_t>(count));
    for (size_t end; (end = partial_.find('\n')) != std::string::npos;) {
      lines_.push_back(partial_.substr(0, end));
      partial_.erase(0, end + 1);
    }
    changed_.notify_all();
  }
  std::lock_guard lock(mutex_);
  if (!partial_.empty()) lines_.push_back(std::exchange(partial_, ""));
  ended_ = true;
  changed_.notify_all();
}

std::optional<std::string> DesktopApp::waitForLine(const std::string& prefix, std::chrono::milliseconds timeout,
                                                   size_t from) {
  std::unique_lock lock(mutex_);
  std::optional<std::string> found;
  changed_.wait_for(lock, timeout, [&] {
    for (size_t i = from; i < lines_.size(); ++i)
      if (lines_[i].rfind(prefix, 0) == 0) {
        found = lines_[i];
        return true;
      }
    return ended_;
  });
  return found;
}

size_t DesktopApp::lineCount() const {
  std::lock_guard lock(mutex_);
  return lines_.size();
}

std::vector<std::string> DesktopApp::lines() const {
  std::lock_guard lock(mutex_);
  return lines_;
}

bool DesktopApp::send(const std::string& line) {
  std::string text = line + "\n";
  return stdinFD_ >= 0 && write(stdinFD_, text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

bool DesktopApp::running() {
  if (reaped_) return false;
  int status = 0;
  if (waitpid(pid_, &status, WNOHANG) == pid_) reaped_ = true;
  return !reaped_;
}

void DesktopApp::stop(std::chrono::milliseconds grace) {
  if (pid_ <= 0 || reaped_) return;
  kill(pid_, SIGTERM);
  // Reaping is the event; checking it often is the only way to wait for a child with a
  // deadline without a signal handler.
  auto deadline = std::chrono::steady_clock::now() + grace;
  while (running() && std::chrono::steady_clock::now() < deadline) std::this_thread::sleep_for(5ms);
  if (!reaped_) {
    kill(pid_, SIGKILL);
    int status = 0;
    waitpid(pid_, &status, 0);
    reaped_ = true;
  }
}

bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds timeout) {
  auto deadline = std::chrono::steady_clock::now() + timeout;
  for (;;) {
    if (condition()) return true;
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(10ms);
  }
}

std::optional<WindowInfo> waitForWindow(WindowService& windows, pid_t pid, std::chrono::milliseconds timeout) {
  std::optional<WindowInfo> found;
  waitUntil(
      [&] {
        for (const WindowInfo& window : windows.windows())
          if (window.ownerPID == pid && window.onScreen) {
            found = window;
            return true;
          }
        return false;
      },
      timeout);
  return found;
}

std::string qtWidgetAppPath() {
  std::string path = std::string(ZORVANE_BUILD_DIR) + "/tests/fixtures/zorvane_qt_widget_app";
  return access(path.c_str(), X_OK) == 0 ? path : "";
}

std::string findProgram(const std::string& name) {
  const char* path = std::getenv("PATH");
  std::istringstream folders(path ? path : "/usr/bin:/bin");
  std::string folder;
  while (std::getline(folders, folder, ':')) {
    std::string candidate = (folder.empty() ? "." : folder) + "/" + name;
    if (access(candidate.c_str(), X_OK) == 0) return candidate;
  }
  return "";
}

}  // namespace zorvane::testing
