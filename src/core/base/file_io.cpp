#include "core/base/file_io.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>

#include "core/base/paths.h"

namespace zorvane {

static std::string reason(int error) {
  return strerror(error);
}

static Failure failure(std::string_view step, std::string_view path, int error) {
  std::string text(step);
  text += ' ';
  text += path;
  text += ": ";
  text += reason(error);
  return Failure{std::move(text)};
}

// Closes a descriptor at the end of a scope unless released.
namespace {
class FileDescriptor {
 public:
  explicit FileDescriptor(int fd) : fd_(fd) {}
  ~FileDescriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;

  int get() const { return fd_; }
  // Closes now and reports close's own error (0 when fine).
  int close() {
    int fd = fd_;
    fd_ = -1;
    return ::close(fd) == 0 ? 0 : errno;
  }

 private:
  int fd_;
};
}  // namespace

Expected<std::string> readFile(const std::string& path) {
  int fd;
  do {
    fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) return Failure{reason(errno)};
  FileDescriptor file(fd);

  struct stat info;
  std::string bytes;
  if (fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && info.st_size > 0) {
    bytes.reserve(static_cast<size_t>(info.st_size));
  }
  char buffer[64 * 1024];
  for (;;) {
    ssize_t count = ::read(fd, buffer, sizeof buffer);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return Failure{reason(errno)};
    if (count == 0) return bytes;
    bytes.append(buffer, static_cast<size_t>(count));
  }
}

// Writes every byte, retrying after signals and short writes. Returns 0 or an errno.
static int writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    ssize_t count = ::write(fd, bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno;
    if (count == 0) return EIO;
    bytes.remove_prefix(static_cast<size_t>(count));
  }
  return 0;
}

// The process umask, read without changing it (changing it would race with other
// threads creating files).
static mode_t currentUmask() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("Umask:", 0) != 0) continue;
    return static_cast<mode_t>(strtoul(line.c_str() + 6, nullptr, 8));
  }
  return 022;
}

// Whether `path` is one of Zorvane's own folders or below one (see the header).
static bool isOwn(const std::string& path) {
  return !Paths::ownDirectoryHolding(path).empty();
}

static std::string parentOf(const std::string& path) {
  size_t slash = path.find_last_of('/');
  if (slash == std::string::npos) return ".";
  if (slash == 0) return "/";
  return path.substr(0, slash);
}

// Flushes a folder's entries (the rename) to disk. Some file systems cannot sync a
// folder and say EINVAL; the rename has happened all the same.
static int syncFolder(const std::string& folder) {
  int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return errno;
  FileDescriptor dir(fd);
  if (fsync(fd) != 0 && errno != EINVAL) return errno;
  return 0;
}

Expected<void> writeFileAtomically(const std::string& path, std::string_view bytes, unsigned mode) {
  if (path.empty()) return Failure{"write: the path is empty"};
  if (path.back() == '/') return Failure{"write " + path + ": not a file path"};

  std::string folder = parentOf(path);
  if (auto made = createDirectories(folder); !made) return made;

  mode_t targetMode;
  struct stat existing;
  if (::stat(path.c_str(), &existing) == 0) {
    targetMode = existing.st_mode & 07777;
  } else {
    targetMode = static_cast<mode_t>(mode) & 07777 & ~currentUmask();
  }
  if (isOwn(folder)) targetMode &= 0700;

  size_t slash = path.find_last_of('/');
  std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
  name.resize(std::min<size_t>(name.size(), 200));  // room for the suffix within NAME_MAX
  std::string temporary = (folder == "/" ? "" : folder) + "/." + name + ".tmp-XXXXXX";
  int fd = mkostemp(temporary.data(), O_CLOEXEC);
  if (fd < 0) return failure("create temporary file in", folder, errno);
  FileDescriptor file(fd);

  // From here on every failure removes the temporary file.
  auto fail = [&](std::string_view step, int error) {
    if (file.get() >= 0) file.close();
    ::unlink(temporary.c_str());
    return failure(step, path, error);
  };

  if (fchmod(fd, targetMode) != 0) return fail("set permissions of", errno);
  if (int error = writeAll(fd, bytes)) return fail("write", error);
  if (fsync(fd) != 0) return fail("flush", errno);
  if (int error = file.close()) return fail("close", error);
  if (::rename(temporary.c_str(), path.c_str()) != 0) return fail("replace", errno);
  if (int error = syncFolder(folder)) return failure("flush folder", folder, error);
  return ok();
}

// Makes an existing folder of Zorvane's own private: one that others may enter is
// tightened to 0700 when it is ours; one that belongs to another user is refused, since
// that user could swap what we put in it.
static Expected<void> keepPrivate(const std::string& folder, const struct stat& info) {
  if (info.st_uid != geteuid()) return Failure{"create folder " + folder + ": it belongs to another user"};
  if ((info.st_mode & 077) == 0) return ok();
  if (::chmod(folder.c_str(), info.st_mode & 0700) != 0) return failure("make private", folder, errno);
  return ok();
}

Expected<void> createDirectories(const std::string& path, unsigned mode) {
  if (path.empty()) return Failure{"create folder: the path is empty"};

  // Walk the components from the root, creating each missing one. EEXIST is fine only
  // when what exists is a folder (or a link to one).
  size_t end = 0;
  while (end != std::string::npos) {
    end = path.find('/', end + 1);
    std::string prefix = path.substr(0, end);
    if (prefix.empty() || prefix.back() == '/') continue;  // "/" or a doubled slash
    bool own = isOwn(prefix);
    if (::mkdir(prefix.c_str(), own ? 0700 : static_cast<mode_t>(mode)) == 0) continue;
    int error = errno;
    struct stat info;
    if (error == EEXIST || error == EACCES || error == EROFS) {
      if (::stat(prefix.c_str(), &info) == 0) {
        if (!S_ISDIR(info.st_mode)) return failure("create folder", prefix, ENOTDIR);
        if (!own) continue;
        if (auto kept = keepPrivate(prefix, info); !kept) return kept;
        continue;
      }
    }
    return failure("create folder", prefix, error);
  }
  return ok();
}

}  // namespace zorvane
