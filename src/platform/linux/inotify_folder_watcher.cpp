#include "platform/linux/inotify_folder_watcher.h"

#include <dirent.h>
#include <errno.h>
#include <poll.h>
#include <string.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <thread>
#include <vector>

#include "core/base/log.h"

namespace zorvane {

namespace {

constexpr uint32_t kWatchMask = IN_CREATE | IN_MOVED_TO | IN_DELETE | IN_MOVED_FROM | IN_DELETE_SELF |
                                IN_MOVE_SELF | IN_ONLYDIR;

// The entries of a folder, one level: name -> is a folder. Empty when it can't be read.
std::map<std::string, bool> listing(const std::string& folder) {
  std::map<std::string, bool> names;
  DIR* dir = ::opendir(folder.c_str());
  if (!dir) return names;
  while (dirent* entry = ::readdir(dir)) {
    std::string name = entry->d_name;
    if (name == "." || name == "..") continue;
    bool isFolder = entry->d_type == DT_DIR;
    if (entry->d_type == DT_UNKNOWN) {
      struct stat info {};
      isFolder = ::stat((folder + "/" + name).c_str(), &info) == 0 && S_ISDIR(info.st_mode);
    }
    names.emplace(std::move(name), isFolder);
  }
  ::closedir(dir);
  return names;
}

std::string joined(const std::string& folder, const std::string& name) {
  return folder == "/" ? "/" + name : folder + "/" + name;
}

}  // namespace

struct InotifyFolderWatcher::Impl {
  struct Folder {
    int count = 0;
    int wd = -1;                        // -1 while the folder isn't there
    std::map<std::string, bool> names;  // what it holds, as far as we know
  };

  MainQueue& queue;
  Options options;
  InotifyFolderWatcher* owner = nullptr;
  int inotifyFD = -1, wakeFD = -1;
  std::thread reader;
  std::atomic<bool> stopping{false};

  // Main queue.
  std::shared_ptr<int> alive = std::make_shared<int>(0);
  // What threads hold: a copy made before they start, so the owner can drop `alive`
  // while they run.
  const std::weak_ptr<int> aliveToken = alive;
  std::map<std::string, Folder> folders;
  std::map<int, std::vector<std::string>> byWatch;  // the kernel's watch -> folders on it
  TimerID retryTimer = 0;
  bool loseNext = false;

  Impl(MainQueue& queue, Options options, int inotifyFD, int wakeFD)
      : queue(queue), options(options), inotifyFD(inotifyFD), wakeFD(wakeFD) {}

  ~Impl() {
    stopping = true;
    uint64_t one = 1;
    [[maybe_unused]] ssize_t written = ::write(wakeFD, &one, sizeof one);
    if (reader.joinable()) reader.join();
    if (retryTimer) queue.cancel(retryTimer);
    ::close(inotifyFD);
    ::close(wakeFD);
  }

  void read() {
    alignas(inotify_event) char buffer[64 * 1024];
    while (!stopping) {
      pollfd fds[2] = {{inotifyFD, POLLIN, 0}, {wakeFD, POLLIN, 0}};
      if (::poll(fds, 2, -1) < 0) continue;  // EINTR
      if (stopping) return;
      if (!(fds[0].revents & POLLIN)) continue;
      ssize_t count = ::read(inotifyFD, buffer, sizeof buffer);
      if (count <= 0) continue;  // EAGAIN, EINTR
      queue.post([weak = aliveToken, this, bytes = std::string(buffer, size_t(count))] {
        if (!weak.expired()) handle(bytes);
      });
    }
  }

  void report(FolderEvent event) {
    queue.post([weak = aliveToken, this, event = std::move(event)] {
      if (weak.expired()) return;
      // The folder may have been unwatched since this was found.
      if (!folders.count(event.folder)) return;
      auto callback = owner->onEvent;  // a copy: it may drop the owner
      if (callback) callback(event);
    });
  }

  void added(const std::string& path, Folder& folder, const std::string& name, bool isFolder) {
    if (!folder.names.emplace(name, isFolder).second) return;
    report({FolderEvent::Kind::added, path, name, joined(path, name), isFolder});
  }

  Expected<void> arm(const std::string& path, Folder& folder) {
    int wd = inotify_add_watch(inotifyFD, path.c_str(), kWatchMask);
    if (wd < 0) {
      int error = errno;
      if (error == ENOENT) return ok();  // looked for again later
      if (error == ENOTDIR) return Failure{"folder " + path + ": not a folder"};
      if (error == ENOSPC)
        return Failure{"folder " + path +
                       ": the system's limit of watched folders is reached (fs.inotify.max_user_watches)"};
      return Failure{"folder " + path + ": " + strerror(error)};
    }
    folder.wd = wd;
    byWatch[wd].push_back(path);
    return ok();
  }

  void disarm(const std::string& path, Folder& folder, bool removeWatch) {
    if (folder.wd < 0) return;
    auto& paths = byWatch[folder.wd];
    paths.erase(std::remove(paths.begin(), paths.end(), path), paths.end());
    if (paths.empty()) {
      byWatch.erase(folder.wd);
      if (removeWatch) inotify_rm_watch(inotifyFD, folder.wd);
    }
    folder.wd = -1;
    folder.names.clear();
  }

  void scheduleRetry() {
    if (retryTimer) return;
    retryTimer = queue.every(options.retrySeconds, [weak = aliveToken, this] {
      if (!weak.expired()) retryMissing();
    });
  }

  void retryMissing() {
    bool stillMissing = false;
    for (auto& [path, folder] : folders) {
      if (folder.wd >= 0) continue;
      if (!arm(path, folder) || folder.wd < 0) {
        stillMissing = true;
        continue;
      }
      Log::info("folder watch: " + path + " is back");
      for (const auto& [name, isFolder] : listing(path)) added(path, folder, name, isFolder);
    }
    if (!stillMissing && retryTimer) {
      queue.cancel(retryTimer);
      retryTimer = 0;
    }
  }

  void gone(int wd, bool removeWatch) {
    auto found = byWatch.find(wd);
    if (found == byWatch.end()) return;
    std::vector<std::string> paths = found->second;
    for (const auto& path : paths) {
      Folder& folder = folders[path];
      disarm(path, folder, removeWatch);
      Log::info("folder watch: " + path + " is gone; waiting for it to come back");
      report({FolderEvent::Kind::gone, path, "", path, true});
    }
    scheduleRetry();
  }

  void rescan() {
    for (auto& [path, folder] : folders) {
      if (folder.wd < 0) continue;
      auto now = listing(path);
      for (const auto& [name, isFolder] : now)
        if (!folder.names.count(name)) report({FolderEvent::Kind::added, path, name, joined(path, name), isFolder});
      folder.names = std::move(now);
    }
  }

  void handle(const std::string& bytes) {
    if (loseNext) {
      loseNext = false;
      inotify_event overflow{};
      overflow.wd = -1;
      overflow.mask = IN_Q_OVERFLOW;
      handle(std::string(reinterpret_cast<const char*>(&overflow), sizeof overflow));
      return;
    }
    for (size_t at = 0; at + sizeof(inotify_event) <= bytes.size();) {
      inotify_event event;
      memcpy(&event, bytes.data() + at, sizeof event);
      std::string name;
      if (event.len > 0 && at + sizeof event + event.len <= bytes.size())
        name = std::string(bytes.data() + at + sizeof event, strnlen(bytes.data() + at + sizeof event, event.len));
      at += sizeof event + event.len;

      if (event.mask & IN_Q_OVERFLOW) {
        Log::info("folder watch: the kernel's event queue overflowed; listing the folders again");
        rescan();
        continue;
      }
      if (event.mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT)) {
        gone(event.wd, !(event.mask & IN_DELETE_SELF));  // a moved folder keeps its watch
        continue;
      }
      if (event.mask & IN_IGNORED) {  // removed by the kernel (deleted, unmounted)
        gone(event.wd, false);
        continue;
      }
      auto found = byWatch.find(event.wd);
      if (found == byWatch.end() || name.empty()) continue;
      for (const auto& path : found->second) {
        Folder& folder = folders[path];
        if (event.mask & (IN_CREATE | IN_MOVED_TO)) added(path, folder, name, event.mask & IN_ISDIR);
        if (event.mask & (IN_DELETE | IN_MOVED_FROM)) folder.names.erase(name);
      }
    }
  }
};

Expected<std::unique_ptr<InotifyFolderWatcher>> InotifyFolderWatcher::create(MainQueue& queue) {
  return create(queue, Options{});
}

Expected<std::unique_ptr<InotifyFolderWatcher>> InotifyFolderWatcher::create(MainQueue& queue, Options options) {
  int inotifyFD = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (inotifyFD < 0)
    return Failure{std::string("folder watcher: no inotify instance (") + strerror(errno) +
                   "; see fs.inotify.max_user_instances)"};
  int wakeFD = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (wakeFD < 0) {
    ::close(inotifyFD);
    return Failure{std::string("folder watcher: ") + strerror(errno)};
  }
  auto impl = std::make_unique<Impl>(queue, options, inotifyFD, wakeFD);
  Impl* state = impl.get();
  state->reader = std::thread([state] { state->read(); });
  return std::unique_ptr<InotifyFolderWatcher>(new InotifyFolderWatcher(std::move(impl)));
}

InotifyFolderWatcher::InotifyFolderWatcher(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {
  impl_->owner = this;
}

InotifyFolderWatcher::~InotifyFolderWatcher() { impl_->alive.reset(); }

Expected<void> InotifyFolderWatcher::watch(const std::string& folder) {
  if (folder.empty() || folder.front() != '/') return Failure{"folder \"" + folder + "\": not an absolute path"};
  std::string path = folder;
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  auto& folders = impl_->folders;
  if (auto found = folders.find(path); found != folders.end()) {
    ++found->second.count;
    return ok();
  }
  Impl::Folder entry;
  if (auto armed = impl_->arm(path, entry); !armed) return armed;
  entry.count = 1;
  // Listed after the watch began, so nothing made in between is missed; what the
  // listing holds is the baseline.
  if (entry.wd >= 0) entry.names = listing(path);
  bool missing = entry.wd < 0;
  folders.emplace(path, std::move(entry));
  if (missing) {
    Log::info("folder watch: " + path + " doesn't exist yet; waiting for it");
    impl_->scheduleRetry();
  }
  return ok();
}

void InotifyFolderWatcher::unwatch(const std::string& folder) {
  std::string path = folder;
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  auto found = impl_->folders.find(path);
  if (found == impl_->folders.end() || --found->second.count > 0) return;
  impl_->disarm(path, found->second, true);
  impl_->folders.erase(found);
}

void InotifyFolderWatcher::loseNextEventsForTesting() { impl_->loseNext = true; }

}  // namespace zorvane
