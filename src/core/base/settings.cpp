#include "core/base/settings.h"

#include <sys/stat.h>

#include "core/base/file_io.h"
#include "core/base/paths.h"
#include "core/base/store_file.h"

namespace zorvane {

// The object in the file; an empty one when the file is missing, nothing when it was
// there but had to be moved aside.
static std::optional<JSONValue> readSettings(const std::string& path) {
  struct stat info {};
  if (::lstat(path.c_str(), &info) != 0) return JSONValue::object();
  if (auto bytes = readFile(path)) {
    if (auto parsed = parseJSON(*bytes); parsed && parsed->is_object()) return std::move(*parsed);
  }
  // StoreFile looks once more under the file's lock (a save of another process may
  // have been under way) and moves the file aside if it is still no object.
  StoreFile::load(path, [](const JSONValue&) -> Expected<void> {
    return Failure{"the settings: a JSON object was expected, not an array"};
  });
  return std::nullopt;
}

Settings::Settings() : Settings(Paths::settingsFile()) {}

Settings::Settings(std::string path) : path_(std::move(path)) { reload(); }

void Settings::reload() { values_ = readSettings(path_).value_or(JSONValue::object()); }

std::optional<bool> Settings::boolValue(std::string_view key) const {
  return zorvane::boolValue(subscript(values_, key));
}

std::optional<std::string> Settings::stringValue(std::string_view key) const {
  return zorvane::stringValue(subscript(values_, key));
}

bool Settings::contains(std::string_view key) const { return subscript(values_, key) != nullptr; }

Expected<void> Settings::setBool(std::string_view key, bool value) { return change(key, JSONValue(value)); }

Expected<void> Settings::setString(std::string_view key, std::string value) {
  return change(key, JSONValue(std::move(value)));
}

Expected<void> Settings::remove(std::string_view key) { return change(key, std::nullopt); }

Expected<void> Settings::change(std::string_view key, std::optional<JSONValue> value) {
  // What is on disk now wins over what was read before, so another process's keys stay;
  // but when the file had to be moved aside, what this object read earlier is the best
  // there is.
  if (auto latest = readSettings(path_)) values_ = std::move(*latest);
  if (value)
    values_[std::string(key)] = std::move(*value);
  else
    values_.erase(std::string(key));
  if (auto saved = StoreFile::save(path_, encodePretty(values_) + "\n"); !saved)
    return Failure{"settings " + path_ + ": " + saved.error()};
  return ok();
}

}  // namespace zorvane
