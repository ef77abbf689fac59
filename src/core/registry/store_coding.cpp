#include "core/registry/store_coding.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <limits>

#include "core/base/file_io.h"
#include "core/base/log.h"
#include "core/base/store_file.h"

namespace zorvane::StoreCoding {

std::optional<SystemTime> parseDate(std::string_view text) {
  // "YYYY-MM-DDTHH:MM:SSZ" is exactly 20 characters; with that length and a final "Z"
  // there is no room for a fraction or an offset.
  if (text.size() != 20 || text.back() != 'Z') return std::nullopt;
  return parseISO8601(text);
}

static Failure failure(std::string_view key, std::string_view why) {
  std::string text(key);
  text += ": ";
  text += why;
  return Failure{std::move(text)};
}

static Failure typeFailure(std::string_view key, std::string_view expected, const JSONValue& value) {
  std::string why = "expected ";
  why += expected;
  why += ", found ";
  why += value.type_name();
  return failure(key, why);
}

Expected<const JSONValue*> FieldReader::field(std::string_view key) const {
  const JSONValue* value = subscript(object_, key);
  if (value == nullptr) return failure(key, "missing");
  return value;
}

Expected<std::string> FieldReader::string(std::string_view key) const {
  Expected<const JSONValue*> value = field(key);
  if (!value) return Failure{value.error()};
  if (!(*value)->is_string()) return typeFailure(key, "a string", **value);
  return (*value)->get<std::string>();
}

Expected<std::optional<std::string>> FieldReader::optionalString(std::string_view key) const {
  const JSONValue* value = subscript(object_, key);
  if (value == nullptr || value->is_null()) return std::optional<std::string>();
  if (!value->is_string()) return typeFailure(key, "a string", *value);
  return std::optional<std::string>(value->get<std::string>());
}

Expected<UUID> FieldReader::uuid(std::string_view key) const {
  Expected<std::string> text = string(key);
  if (!text) return Failure{text.error()};
  std::optional<UUID> parsed = UUID::parse(*text);
  if (!parsed) return failure(key, "not a UUID");
  return *parsed;
}

Expected<SystemTime> FieldReader::date(std::string_view key) const {
  Expected<std::string> text = string(key);
  if (!text) return Failure{text.error()};
  std::optional<SystemTime> parsed = parseDate(*text);
  if (!parsed) return failure(key, "expected a date like 2026-05-01T09:30:00Z");
  return *parsed;
}

Expected<int64_t> FieldReader::integer(std::string_view key) const {
  Expected<const JSONValue*> found = field(key);
  if (!found) return Failure{found.error()};
  const JSONValue& value = **found;
  if (!value.is_number()) return typeFailure(key, "a number", value);
  static constexpr std::string_view kRange = "expected a whole number that fits in 64 bits";
  if (value.is_number_unsigned()) {
    auto number = value.get<uint64_t>();
    if (number > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) return failure(key, kRange);
    return static_cast<int64_t>(number);
  }
  if (value.is_number_integer()) return value.get<int64_t>();
  // 2^63 is the first double above the range; -2^63 itself fits.
  auto number = value.get<double>();
  if (!std::isfinite(number) || std::trunc(number) != number || number >= 0x1p63 || number < -0x1p63) {
    return failure(key, kRange);
  }
  return static_cast<int64_t>(number);
}

Expected<std::optional<bool>> FieldReader::optionalBool(std::string_view key) const {
  const JSONValue* value = subscript(object_, key);
  if (value == nullptr || value->is_null()) return std::optional<bool>();
  if (!value->is_boolean()) return typeFailure(key, "true or false", *value);
  return std::optional<bool>(value->get<bool>());
}

Expected<void> expectObject(const JSONValue& value) {
  if (value.is_object()) return ok();
  return Failure{std::string("expected an object, found ") + value.type_name()};
}

// The same exclusive lock StoreFile takes around a save ("<file>.lock"), so a file is
// never moved aside while another process is replacing it.
namespace {
class StoreLock {
 public:
  explicit StoreLock(const std::string& path) {
    fd_ = ::open((path + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd_ < 0) return;
    while (::flock(fd_, LOCK_EX) != 0 && errno == EINTR) {
    }
  }
  ~StoreLock() {
    if (fd_ >= 0) ::close(fd_);
  }
  StoreLock(const StoreLock&) = delete;
  StoreLock& operator=(const StoreLock&) = delete;

 private:
  int fd_ = -1;
};
}  // namespace

static bool exists(const std::string& path) {
  struct stat info {};
  return ::lstat(path.c_str(), &info) == 0;
}

static void keepAside(const std::string& path, const std::string& why) {
  std::string aside = path + ".corrupt";
  for (int n = 2; exists(aside); ++n) aside = path + ".corrupt-" + std::to_string(n);
  if (::rename(path.c_str(), aside.c_str()) == 0) {
    Log::info("store " + path + ": " + why + "; kept it as " + aside + " and started empty");
    return;
  }
  std::string reason = strerror(errno);
  Log::info("store " + path + ": " + why + "; couldn't move it aside (" + reason + "), reading it as empty");
}

void loadRecords(const std::string& path, const std::function<Expected<void>(const JSONValue&)>& decode) {
  std::optional<JSONValue> array = StoreFile::loadArray(path);
  if (array && decode(*array)) return;
  if (!array && !exists(path)) return;  // missing, or already kept aside by StoreFile

  // Look again under the store's lock: another process may have replaced the file a
  // moment ago. A file that is there but can't be read (no permission, an I/O error, a
  // folder in its place) would be replaced by the next save just the same, so it is kept
  // aside too.
  StoreLock lock(path);
  if (!exists(path)) return;
  Expected<std::string> bytes = readFile(path);
  if (!bytes) {
    keepAside(path, "unreadable (" + bytes.error() + ")");
    return;
  }
  std::optional<JSONValue> again = parseJSON(*bytes);
  if (!again || !again->is_array()) {
    keepAside(path, again ? "not a JSON array" : "not valid JSON");
    return;
  }
  Expected<void> decoded = decode(*again);
  if (decoded) return;
  keepAside(path, "couldn't decode " + decoded.error());
}

}  // namespace zorvane::StoreCoding
