#include "platform/x11/virtual_keys.h"

#include <X11/keysym.h>
#include <X11/Xutil.h>

#include <map>

#include "platform/input_service.h"

namespace zorvane::VirtualKeys {

static const std::map<uint16_t, KeySym>& table() {
  static const std::map<uint16_t, KeySym> keys = {
      {36, XK_Return}, {48, XK_Tab}, {49, XK_space}, {51, XK_BackSpace}, {53, XK_Escape},
      {117, XK_Delete}, {115, XK_Home}, {119, XK_End}, {116, XK_Prior}, {121, XK_Next},
      {123, XK_Left}, {124, XK_Right}, {125, XK_Down}, {126, XK_Up},
      {122, XK_F1}, {120, XK_F2}, {99, XK_F3}, {118, XK_F4}, {96, XK_F5}, {97, XK_F6},
      {98, XK_F7}, {100, XK_F8}, {101, XK_F9}, {109, XK_F10}, {103, XK_F11}, {111, XK_F12},
      {0, XK_a}, {1, XK_s}, {2, XK_d}, {3, XK_f}, {4, XK_h}, {5, XK_g}, {6, XK_z}, {7, XK_x},
      {8, XK_c}, {9, XK_v}, {11, XK_b}, {12, XK_q}, {13, XK_w}, {14, XK_e}, {15, XK_r},
      {16, XK_y}, {17, XK_t}, {18, XK_1}, {19, XK_2}, {20, XK_3}, {21, XK_4}, {22, XK_6},
      {23, XK_5}, {24, XK_equal}, {25, XK_9}, {26, XK_7}, {27, XK_minus}, {28, XK_8},
      {29, XK_0}, {30, XK_bracketright}, {31, XK_o}, {32, XK_u}, {33, XK_bracketleft},
      {34, XK_i}, {35, XK_p}, {37, XK_l}, {38, XK_j}, {39, XK_apostrophe}, {40, XK_k},
      {41, XK_semicolon}, {42, XK_backslash}, {43, XK_comma}, {44, XK_slash}, {45, XK_n},
      {46, XK_m}, {47, XK_period}, {50, XK_grave},
  };
  return keys;
}

std::optional<KeySym> keysym(uint16_t virtualKey) {
  auto found = table().find(virtualKey);
  if (found == table().end()) return std::nullopt;
  return found->second;
}

std::optional<uint16_t> virtualKey(KeySym keysym) {
  KeySym lower = 0, upper = 0;
  XConvertCase(keysym, &lower, &upper);
  for (const auto& [code, sym] : table())
    if (sym == lower) return code;
  return std::nullopt;
}

std::string name(uint16_t virtualKey) {
  auto sym = keysym(virtualKey);
  const char* text = sym ? XKeysymToString(*sym) : nullptr;
  if (!text) return "key " + std::to_string(virtualKey);
  return text;
}

ModifierMasks ModifierMasks::of(Display* display) {
  ModifierMasks masks;
  XModifierKeymap* map = XGetModifierMapping(display);
  if (!map) return masks;
  auto maskOf = [&](KeySym wanted) -> unsigned int {
    KeyCode code = XKeysymToKeycode(display, wanted);
    if (code == 0) return 0;
    for (int modifier = 0; modifier < 8; ++modifier) {
      for (int i = 0; i < map->max_keypermod; ++i)
        if (map->modifiermap[modifier * map->max_keypermod + i] == code) return 1u << modifier;
    }
    return 0;
  };
  masks.option = maskOf(XK_Alt_L);
  if (!masks.option) masks.option = maskOf(XK_Meta_L);
  masks.command = maskOf(XK_Super_L);
  masks.numLock = maskOf(XK_Num_Lock);
  masks.scrollLock = maskOf(XK_Scroll_Lock);
  XFreeModifiermap(map);
  return masks;
}

std::optional<unsigned int> ModifierMasks::stateOf(uint64_t flags) const {
  unsigned int state = 0;
  const std::pair<uint64_t, unsigned int> pairs[] = {
      {KeyFlags::shift, shift}, {KeyFlags::control, control}, {KeyFlags::option, option}, {KeyFlags::command, command}};
  for (auto [flag, mask] : pairs) {
    if (!(flags & flag)) continue;
    if (mask == 0) return std::nullopt;
    state |= mask;
  }
  return state;
}

uint64_t ModifierMasks::flagsOf(unsigned int state) const {
  uint64_t flags = 0;
  if (shift && (state & shift)) flags |= KeyFlags::shift;
  if (control && (state & control)) flags |= KeyFlags::control;
  if (option && (state & option)) flags |= KeyFlags::option;
  if (command && (state & command)) flags |= KeyFlags::command;
  return flags;
}

}  // namespace zorvane::VirtualKeys
