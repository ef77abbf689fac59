// FakeHotKey: a hot key a test presses. Combinations in `taken` are held by "another
// program" and can't be registered.
#pragma once

#include <optional>
#include <set>
#include <utility>

#include "platform/hot_key.h"

namespace zorvane {

class FakeHotKey final : public HotKey {
 public:
  std::optional<std::pair<uint16_t, uint64_t>> registered;  // key and flags
  std::set<std::pair<uint16_t, uint64_t>> taken;

  Expected<void> registerKey(uint16_t virtualKey, uint64_t flags) override {
    registered.reset();
    if (taken.count({virtualKey, flags})) return Failure{"hot key: another program holds it"};
    registered = std::pair{virtualKey, flags};
    return ok();
  }
  void unregisterKey() override { registered.reset(); }

  // The user presses and releases the registered key; nothing when none is.
  void press() {
    if (registered && onPress) onPress();
  }
  void release() {
    if (registered && onRelease) onRelease();
  }
};

}  // namespace zorvane
