#include "core/base/environment.h"

#include <unistd.h>

extern char** environ;

namespace zorvane {

Environment Environment::current() {
  Environment env;
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    std::string_view text(*entry);
    size_t equals = text.find('=');
    if (equals == std::string_view::npos || equals == 0) continue;
    env.vars_.emplace(std::string(text.substr(0, equals)), std::string(text.substr(equals + 1)));
  }
  return env;
}

std::optional<std::string> Environment::get(std::string_view name) const {
  auto it = vars_.find(name);
  if (it == vars_.end()) return std::nullopt;
  return it->second;
}

void Environment::set(const std::string& name, std::string value) {
  vars_.insert_or_assign(name, std::move(value));
}

void Environment::unset(const std::string& name) { vars_.erase(name); }

std::vector<std::string> Environment::entries() const {
  std::vector<std::string> result;
  result.reserve(vars_.size());
  for (const auto& [name, value] : vars_) result.push_back(name + "=" + value);
  return result;
}

}  // namespace zorvane
