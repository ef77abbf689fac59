#include "app/pieces/audit_log.h"

#include <fcntl.h>
#include <unistd.h>

#include "core/base/file_io.h"
#include "core/base/iso8601.h"
#include "core/base/json_value.h"
#include "core/base/log.h"
#include "core/base/paths.h"

namespace zorvane::AuditLog {

std::string defaultPath() { return Paths::dataDirectory() + "/audit.log"; }

void append(const std::string& path, const SystemTime& when, const UUID& piece, const std::string& tool,
            ActionClass cls, const std::string& summary, bool allowed, bool byTrust) {
  JSONValue line = {{"ts", formatISO8601(when)},
                    {"pieceID", piece.uuidString()},
                    {"tool", tool},
                    {"class", std::string(rawValue(cls))},
                    {"summary", summary},
                    {"allowed", allowed}};
  if (byTrust) line["byTrust"] = true;
  std::string bytes = line.dump(-1, ' ', false, JSONValue::error_handler_t::replace) + "\n";
  std::string folder = path.substr(0, path.rfind('/'));
  if (!folder.empty()) (void)createDirectories(folder);
  // One write with O_APPEND: lines from several pieces never interleave.
  int fd = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
  if (fd < 0) {
    Log::info("audit log " + path + ": can't be opened");
    return;
  }
  if (::write(fd, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()))
    Log::info("audit log " + path + ": write failed");
  ::close(fd);
}

}  // namespace zorvane::AuditLog
