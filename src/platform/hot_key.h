// HotKey: one global keyboard shortcut that reaches this program whichever application
// has the focus. X11HotKey in x11/ (a key grab on the root window), FakeHotKey in fake/.
//
//   hotKey->onPress = [this] { toggleListening(); };
//   if (auto taken = hotKey->registerKey(49, KeyFlags::option); !taken)
//     Log::info(taken.error());   // "hot key Alt+space: another program holds it"
//
// `onPress` and `onRelease` run on the main queue, once per press and once per release:
// the keyboard's auto-repeat while the key is held gives no further presses. A second
// `registerKey` replaces the first key; `unregisterKey` frees it. Neither callback runs
// once the object is destroyed or the key unregistered.
#pragma once

#include <cstdint>
#include <functional>

#include "core/base/expected.h"
#include "platform/input_service.h"

namespace zorvane {

class HotKey {
 public:
  virtual ~HotKey() = default;

  std::function<void()> onPress;
  std::function<void()> onRelease;

  // `virtualKey` is a code of the US key table (49 space); `flags` KeyFlags. Fails when
  // the key doesn't exist on this keyboard, a modifier can't be made, or another
  // program already holds the combination; the previous key is then freed.
  [[nodiscard]] virtual Expected<void> registerKey(uint16_t virtualKey, uint64_t flags) = 0;
  virtual void unregisterKey() = 0;
};

}  // namespace zorvane
