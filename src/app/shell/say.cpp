#include "app/shell/say.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

namespace zorvane {

static void writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    ssize_t n = ::write(fd, bytes.data(), bytes.size());
    if (n < 0) {
      if (errno == EINTR) continue;
      return;
    }
    bytes.remove_prefix(static_cast<size_t>(n));
  }
}

void Say::operator()(std::initializer_list<std::string_view> items) const {
  std::string line;
  bool first = true;
  for (std::string_view item : items) {
    if (!first) line += ' ';
    first = false;
    line += item;
  }
  line += '\n';
  writeAll(STDOUT_FILENO, line);
  if (!outPath_) return;
  int fd = ::open(outPath_->c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0) return;
  writeAll(fd, line);
  ::close(fd);
}

}  // namespace zorvane
