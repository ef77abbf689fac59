// say: the selftest's only output. The items are joined by one blank and written as one
// line to standard output; with an output file set, the same line is appended there
// too (the file is created if missing; a failed write is ignored). Each line goes out
// in one write call, so lines from different threads don't tear.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <initializer_list>

namespace zorvane {

class Say {
 public:
  explicit Say(std::optional<std::string> outPath = std::nullopt) : outPath_(std::move(outPath)) {}
  void operator()(std::initializer_list<std::string_view> items) const;

 private:
  std::optional<std::string> outPath_;
};

}  // namespace zorvane
