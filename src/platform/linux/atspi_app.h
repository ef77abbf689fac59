// AtspiApp: an application on the accessibility bus as the elements of its tree share
// it, with what is known of how it has been answering; and the small owners of libatspi's
// GObjects, strings and errors that the AT-SPI code uses throughout.
//
// An application that lets a call run into the time-out (libatspi then reports no error,
// just an empty answer) is taken as not answering for a quiet period: callers check
// `answering()` first and fail at once, so a hung application costs one time-out per
// operation rather than one per element. Not thread-safe, like the rest of the AT-SPI
// code.
#pragma once

#include <atspi/atspi.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>

#include "core/targets/file_manager_app.h"

namespace zorvane {

// Owns one reference of a GObject (libatspi objects and interfaces are GObjects).
template <typename T>
struct GObjectUnref {
  void operator()(T* object) const {
    if (object) g_object_unref(object);
  }
};
template <typename T>
using GObjectPtr = std::unique_ptr<T, GObjectUnref<T>>;

// Owns a string libatspi handed over (g_free).
struct GFree {
  void operator()(void* memory) const { g_free(memory); }
};
using GCharsPtr = std::unique_ptr<char, GFree>;

// A GError out-parameter that frees what it receives.
class GErrorSlot {
 public:
  GErrorSlot() = default;
  GErrorSlot(const GErrorSlot&) = delete;
  GErrorSlot& operator=(const GErrorSlot&) = delete;
  ~GErrorSlot() { clear(); }

  // For the call's GError** parameter; clears an earlier error first.
  GError** out() {
    clear();
    return &error_;
  }
  bool failed() const { return error_ != nullptr; }
  void clear() {
    if (error_) g_error_free(error_);
    error_ = nullptr;
  }

 private:
  GError* error_ = nullptr;
};

// An application on the accessibility bus, and whether it has been answering. Shared by
// all elements of that application.
class AtspiApp {
 public:
  AtspiApp(GObjectPtr<AtspiAccessible> root, int32_t pid, std::chrono::milliseconds callTimeout,
           std::chrono::milliseconds quietPeriod);

  AtspiAccessible* root() const { return root_.get(); }
  int32_t pid() const { return pid_; }
  // The file manager this application is, known by its executable; null for any other
  // application. Read once.
  const FileManagerApp* fileManager();

  // False while the application is taken as not answering: callers then skip the call
  // and fail at once.
  bool answering() const;
  // Reports how long a call to the application took; a call that ran into the time-out
  // starts a quiet period.
  void noteCall(std::chrono::steady_clock::time_point started);

 private:
  GObjectPtr<AtspiAccessible> root_;
  int32_t pid_;
  std::chrono::milliseconds callTimeout_, quietPeriod_;
  std::chrono::steady_clock::time_point quietUntil_{};
  std::optional<const FileManagerApp*> fileManager_;
};

}  // namespace zorvane
