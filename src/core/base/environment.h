// Environment: a copy of a process environment that can be edited before it is handed to
// a child. Names are case-sensitive; an entry without "=" in the source is skipped.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zorvane {

class Environment {
 public:
  Environment() = default;
  // This process's environment as it is now.
  static Environment current();

  std::optional<std::string> get(std::string_view name) const;
  void set(const std::string& name, std::string value);
  void unset(const std::string& name);
  bool contains(std::string_view name) const { return get(name).has_value(); }

  // "NAME=value" entries, sorted by name.
  std::vector<std::string> entries() const;

 private:
  std::map<std::string, std::string, std::less<>> vars_;
};

}  // namespace zorvane
