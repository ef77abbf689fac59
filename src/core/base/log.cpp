#include "core/base/log.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <thread>

#include "core/base/file_io.h"
#include "core/base/iso8601.h"
#include "core/base/paths.h"
#include "core/base/utf8.h"

namespace zorvane::Log {

namespace {

// A queued entry: a finished line, or the file the lines after it go to. Carrying the
// file in the queue keeps lines handed over before a setFile in the old file.
struct Entry {
  bool isFile;
  std::string text;
};

// The queue shared by every caller and the one writer thread. It is created on first
// use and deliberately never destroyed: the writer may still be running while static
// objects are torn down at exit, and must never find its mutex gone.
class Writer {
 public:
  void add(std::string line, std::string file);
  void setFile(const std::string& path);
  void flush();

 private:
  void run();
  void writeLines(const std::string& file, const std::string& lines);

  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Entry> queue_;
  std::string override_;        // the file set by setFile, empty for the default
  std::string lastQueuedFile_;  // the file of the newest queued line
  uint64_t queued_ = 0;         // lines handed over so far
  uint64_t written_ = 0;        // lines written (or dropped) so far
  bool started_ = false;
  bool failedToStart_ = false;
};

}  // namespace

static Writer& writer() {
  static Writer* instance = [] {
    auto* created = new Writer;
    std::atexit([] { Log::flush(); });
    return created;
  }();
  return *instance;
}

void Writer::add(std::string line, std::string defaultFile) {
  std::unique_lock lock(mutex_);
  if (failedToStart_) return;
  if (!started_) {
    try {
      std::thread([this] { run(); }).detach();
      started_ = true;
    } catch (...) {
      failedToStart_ = true;  // no thread: lines are dropped rather than blocking anyone
      return;
    }
  }
  std::string file = override_.empty() ? std::move(defaultFile) : override_;
  if (file != lastQueuedFile_) {
    queue_.push_back({true, file});
    lastQueuedFile_ = std::move(file);
  }
  queue_.push_back({false, std::move(line)});
  ++queued_;
  changed_.notify_all();
}

void Writer::setFile(const std::string& path) {
  std::lock_guard lock(mutex_);
  override_ = path;
}

void Writer::flush() {
  std::unique_lock lock(mutex_);
  uint64_t target = queued_;
  changed_.wait(lock, [&] { return written_ >= target || failedToStart_; });
}

void Writer::run() {
  std::string file;
  for (;;) {
    std::deque<Entry> batch;
    {
      std::unique_lock lock(mutex_);
      changed_.wait(lock, [&] { return !queue_.empty(); });
      batch.swap(queue_);
    }
    uint64_t count = 0;
    for (const Entry& entry : batch) count += entry.isFile ? 0 : 1;
    try {
      // Consecutive lines for one file go out in one write.
      std::string lines;
      for (Entry& entry : batch) {
        if (!entry.isFile) {
          lines += entry.text;
          continue;
        }
        writeLines(file, lines);
        lines.clear();
        file = std::move(entry.text);
      }
      writeLines(file, lines);
    } catch (...) {
      // Out of memory: these lines are dropped, and the writer keeps running.
    }

    std::lock_guard lock(mutex_);
    written_ += count;
    changed_.notify_all();
  }
}

// The log says what the agents did and to what: it is the user's alone. A file left
// readable by others (by an older version, or by hand) is tightened when it is ours.
static int openForAppend(const std::string& file) {
  int fd;
  do {
    fd = ::open(file.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
  } while (fd < 0 && errno == EINTR);
  struct stat info {};
  if (fd >= 0 && ::fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && info.st_uid == geteuid() &&
      (info.st_mode & 077) != 0) {
    (void)::fchmod(fd, info.st_mode & 0700);
  }
  return fd;
}

void Writer::writeLines(const std::string& file, const std::string& lines) {
  if (lines.empty() || file.empty()) return;
  int fd = openForAppend(file);
  if (fd < 0 && errno == ENOENT) {
    size_t slash = file.find_last_of('/');
    if (slash != std::string::npos && slash > 0) {
      (void)createDirectories(file.substr(0, slash));
      fd = openForAppend(file);
    }
  }
  if (fd < 0) return;  // nowhere to write: the lines are dropped
  std::string_view rest = lines;
  while (!rest.empty()) {
    ssize_t count = ::write(fd, rest.data(), rest.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    rest.remove_prefix(static_cast<size_t>(count));
  }
  ::close(fd);
}

// One message is one line: line ends inside it become blanks, and bytes that are not
// UTF-8 are repaired so the log stays readable text.
static std::string makeLine(std::string_view text) {
  std::string line = formatISO8601(std::chrono::system_clock::now());
  line += ' ';
  std::string body = repairUTF8(text);
  for (char& c : body) {
    if (c == '\n' || c == '\r') c = ' ';
  }
  line += body;
  line += '\n';
  return line;
}

void info(std::string_view text) {
  try {
    writer().add(makeLine(text), Paths::logFile());
  } catch (...) {
    // Logging never fails its caller.
  }
}

void flush() {
  try {
    writer().flush();
  } catch (...) {
  }
}

void setFile(const std::string& path) {
  try {
    writer().setFile(path);
  } catch (...) {
  }
}

}  // namespace zorvane::Log
