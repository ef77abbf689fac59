// X11HotKey: the global shortcut as passive key grabs on the root window, on a
// connection and reader thread of its own (EventConnection).
//
// X matches a grab against the exact modifier state, and the lock modifiers (Caps Lock,
// Num Lock, Scroll Lock, wherever the keyboard map puts them) count; so the key is
// grabbed once for each combination of them that the map has, and works whichever locks
// are on. A grab the server refuses because another client holds the same key
// (BadAccess) makes `registerKey` fail with "another program holds it" and leaves none
// of this key's grabs behind; the error never reaches the process-wide X error handler.
//
// `registerKey` and `unregisterKey` wait for the reader thread (one round trip to the
// server). A change of the keyboard map grabs the key again under its new keycode.
// Lives on the main queue; see platform/hot_key.h for the callbacks.
#pragma once

#include <memory>
#include <string>

#include "core/base/main_queue.h"
#include "platform/hot_key.h"

namespace zorvane {

class X11HotKey final : public HotKey {
 public:
  // Opens a connection to `displayName` (or $DISPLAY); fails when none can be opened.
  [[nodiscard]] static Expected<std::unique_ptr<X11HotKey>> create(MainQueue& queue = MainQueue::main(),
                                                                   const std::string& displayName = "");
  ~X11HotKey() override;

  [[nodiscard]] Expected<void> registerKey(uint16_t virtualKey, uint64_t flags) override;
  void unregisterKey() override;

 private:
  struct Impl;
  explicit X11HotKey(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> impl_;
};

}  // namespace zorvane
