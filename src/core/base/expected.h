// Expected<T>: a value, or a human-readable message saying why there is none.
//
// Failure is text in this codebase, never an exception (only a session's start and
// the tool handlers throw). A failing function returns `Failure{"what: why"}`; the
// caller tests the result, and either uses the value or passes the text up, adding
// context once:
//
//   Expected<std::string> bytes = readFile(path);
//   if (!bytes) return Failure{"settings " + path + ": " + bytes.error()};
//
// There is no default constructor: an empty `return {};` can never be mistaken for
// success. Expected<void> carries no value; `Expected<void>{}` is not allowed either,
// use `ok()`.
#pragma once

#include <cassert>
#include <string>
#include <utility>
#include <variant>

namespace zorvane {

struct Failure {
  std::string text;
};

template <typename T>
class [[nodiscard]] Expected {
 public:
  Expected(T value) : state_(std::in_place_index<0>, std::move(value)) {}
  Expected(Failure failure) : state_(std::in_place_index<1>, std::move(failure)) {}

  [[nodiscard]] bool hasValue() const { return state_.index() == 0; }
  explicit operator bool() const { return hasValue(); }

  T& value() & {
    assert(hasValue() && "value() of a failed Expected");
    return std::get<0>(state_);
  }
  const T& value() const& {
    assert(hasValue() && "value() of a failed Expected");
    return std::get<0>(state_);
  }
  T&& value() && {
    assert(hasValue() && "value() of a failed Expected");
    return std::get<0>(std::move(state_));
  }
  T* operator->() { return &value(); }
  const T* operator->() const { return &value(); }
  T& operator*() & { return value(); }
  const T& operator*() const& { return value(); }

  // The failure text; empty for a value.
  [[nodiscard]] const std::string& error() const {
    static const std::string none;
    return hasValue() ? none : std::get<1>(state_).text;
  }

 private:
  std::variant<T, Failure> state_;
};

template <>
class [[nodiscard]] Expected<void> {
 public:
  Expected(Failure failure) : failed_(true), text_(std::move(failure.text)) {}
  static Expected success() { return Expected(); }

  [[nodiscard]] bool hasValue() const { return !failed_; }
  explicit operator bool() const { return hasValue(); }
  [[nodiscard]] const std::string& error() const { return text_; }

 private:
  Expected() = default;
  bool failed_ = false;
  std::string text_;
};

// The success value of Expected<void>.
inline Expected<void> ok() { return Expected<void>::success(); }

}  // namespace zorvane
