#include "core/base/store_file.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/base/file_io.h"
#include "core/base/log.h"

namespace zorvane::StoreFile {

static bool exists(const std::string& path) {
  struct stat info {};
  return ::lstat(path.c_str(), &info) == 0;
}

// Holds an exclusive flock on "<path>.lock" for its lifetime.
class FileLock {
 public:
  explicit FileLock(const std::string& path) {
    fd_ = ::open((path + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd_ < 0) return;
    while (::flock(fd_, LOCK_EX) != 0 && errno == EINTR) {
    }
  }
  ~FileLock() {
    if (fd_ >= 0) ::close(fd_);  // closing releases the lock
  }
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;

 private:
  int fd_ = -1;
};

static void moveAside(const std::string& path, const std::string& why) {
  std::string target = path + ".corrupt";
  for (int n = 2; exists(target); ++n) target = path + ".corrupt-" + std::to_string(n);
  if (::rename(path.c_str(), target.c_str()) == 0) {
    Log::info("store " + path + ": " + why + "; kept it as " + target + " and started empty");
  } else {
    Log::info("store " + path + ": " + why + "; couldn't move it aside (" + strerror(errno) +
              "), reading it as empty");
  }
}

// Why the bytes of a store file can't be used; nothing when `decode` took them.
static std::optional<std::string> refusal(const Expected<std::string>& bytes,
                                          const std::function<Expected<void>(const JSONValue&)>& decode) {
  if (!bytes) return "unreadable (" + bytes.error() + ")";
  auto parsed = parseJSON(*bytes);
  if (!parsed) return "not valid JSON";
  if (!parsed->is_array()) return "not a JSON array";
  if (auto decoded = decode(*parsed); !decoded) return "couldn't decode " + decoded.error();
  return std::nullopt;
}

bool load(const std::string& path, const std::function<Expected<void>(const JSONValue&)>& decode) {
  if (!exists(path)) return false;
  if (!refusal(readFile(path), decode)) return true;
  // Another process may be saving right now; look again under the lock before
  // declaring the file lost.
  FileLock lock(path);
  if (!exists(path)) return false;
  auto why = refusal(readFile(path), decode);
  if (!why) return true;
  moveAside(path, *why);
  return false;
}

std::optional<JSONValue> loadArray(const std::string& path) {
  std::optional<JSONValue> array;
  load(path, [&array](const JSONValue& value) -> Expected<void> {
    array = value;
    return ok();
  });
  return array;
}

Expected<void> save(const std::string& path, std::string_view bytes) {
  std::string folder = path.substr(0, path.rfind('/'));
  if (!folder.empty()) {
    if (auto made = createDirectories(folder, 0700); !made) return made;
  }
  FileLock lock(path);
  return writeFileAtomically(path, bytes, 0600);
}

}  // namespace zorvane::StoreFile
