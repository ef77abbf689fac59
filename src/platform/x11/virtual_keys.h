// VirtualKeys: the US virtual-key codes callers use on every platform (49 space, 0 "a",
// 53 escape, ...) and the X keysyms of the same keys, both ways; and the modifier masks
// of a display, found from its modifier map rather than assumed (Alt is usually Mod1,
// Super Mod4 and NumLock Mod2, but a keyboard map may say otherwise).
#pragma once

#include <X11/Xlib.h>

#include <cstdint>
#include <optional>
#include <string>

namespace zorvane::VirtualKeys {

// The keysym of a code; nothing for codes outside the table.
std::optional<KeySym> keysym(uint16_t virtualKey);
// The code of a keysym (upper- and lower-case letters alike); nothing outside the table.
std::optional<uint16_t> virtualKey(KeySym keysym);
// The key's name for messages ("space", "a", "F5"); "key <code>" outside the table.
std::string name(uint16_t virtualKey);

// The modifier masks of one display. A modifier that no key produces has mask 0.
struct ModifierMasks {
  unsigned int shift = ShiftMask, control = ControlMask, option = 0, command = 0;
  unsigned int capsLock = LockMask, numLock = 0, scrollLock = 0;

  // Reads the display's modifier map (one round trip).
  static ModifierMasks of(Display* display);
  // KeyFlags -> X state bits; nothing when a flag asks for a modifier the map lacks.
  std::optional<unsigned int> stateOf(uint64_t flags) const;
  // X state bits -> KeyFlags (lock modifiers and buttons ignored).
  uint64_t flagsOf(unsigned int state) const;
  // The lock modifiers, which the user toggles and a hot key must ignore.
  unsigned int locks() const { return capsLock | numLock | scrollLock; }
};

}  // namespace zorvane::VirtualKeys
