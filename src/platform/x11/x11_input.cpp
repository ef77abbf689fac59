#include "platform/x11/x11_input.h"

#include <X11/XKBlib.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <map>
#include <thread>
#include <vector>

#include "core/base/log.h"
#include "core/base/utf8.h"
#include "platform/x11/virtual_keys.h"
#include "platform/x11/x11_display.h"

namespace zorvane {

namespace {

struct Modifier {
  uint64_t flag;
  KeySym keysym;
};
// Pressed in this order, released in the reverse.
constexpr Modifier kModifiers[] = {
    {KeyFlags::command, XK_Super_L},
    {KeyFlags::shift, XK_Shift_L},
    {KeyFlags::option, XK_Alt_L},
    {KeyFlags::control, XK_Control_L},
};

constexpr int kPixelsPerWheelClick = 40;
constexpr int kMaxWheelClicks = 100;

KeySym keysymForCodePoint(char32_t point) {
  if (point == '\n' || point == '\r') return XK_Return;
  if (point == '\t') return XK_Tab;
  if (point < 0x20 || point == 0x7F || (point >= 0x80 && point < 0xA0)) return NoSymbol;
  if (point < 0x100) return point;  // Latin-1 keysyms are the code points
  return 0x01000000 + point;
}

int clampedCoordinate(double value) {
  if (!std::isfinite(value)) return 0;
  return static_cast<int>(std::clamp(std::lround(value), long(INT_MIN / 2), long(INT_MAX / 2)));
}

}  // namespace

struct X11Input::Impl {
  std::shared_ptr<X11Display> display;
  Options options;
  bool spareScanned = false;
  std::vector<KeyCode> spareKeycodes;      // keycodes the keyboard map leaves empty
  std::map<uint16_t, KeyCode> heldRemaps;  // virtual keys down on a borrowed keycode

  Display* dpy() const { return display->display(); }

  struct KeyLocation {
    KeyCode keycode = 0;
    bool shifted = false;
  };

  // The keyboard layout in use (its XKB group): a key types what that group says, so a
  // character only another layout holds counts as missing.
  int activeGroup() {
    XkbStateRec state{};
    return XkbGetState(dpy(), XkbUseCoreKbd, &state) == Success ? state.group : 0;
  }

  // Where the active layout has this keysym: the unshifted level first, then the shifted.
  KeyLocation locate(KeySym keysym, int group) {
    KeyCode keycode = XKeysymToKeycode(dpy(), keysym);
    if (keycode == 0) return {};
    if (XkbKeycodeToKeysym(dpy(), keycode, group, 0) == keysym) return {keycode, false};
    if (XkbKeycodeToKeysym(dpy(), keycode, group, 1) == keysym) return {keycode, true};
    // On a level that needs another modifier (AltGr), or in another layout: not usable
    // as it stands.
    return {};
  }

  void scanSpareKeycodes() {
    if (spareScanned) return;
    spareScanned = true;
    int minKeycode = 0, maxKeycode = 0, perKeycode = 0;
    XDisplayKeycodes(dpy(), &minKeycode, &maxKeycode);
    KeySym* map = XGetKeyboardMapping(dpy(), static_cast<KeyCode>(minKeycode), maxKeycode - minKeycode + 1,
                                      &perKeycode);
    if (!map) return;
    // From the top down: the highest keycodes are the least likely to be real keys.
    for (int keycode = maxKeycode; keycode >= minKeycode; --keycode) {
      const KeySym* row = map + (keycode - minKeycode) * perKeycode;
      if (std::all_of(row, row + perKeycode, [](KeySym s) { return s == NoSymbol; }))
        spareKeycodes.push_back(static_cast<KeyCode>(keycode));
    }
    XFree(map);
  }

  void setMapping(KeyCode keycode, KeySym keysym) {
    // Both levels, so the character comes out whatever Shift or Caps Lock is doing.
    KeySym pair[2] = {keysym, keysym};
    XChangeKeyboardMapping(dpy(), keycode, 2, pair, 1);
  }

  // Lets the clients pick up a changed keyboard map: the server has sent them its
  // MappingNotify once the change is synced, and they reload the map when they handle it.
  void settle() {
    syncMapping();
    std::this_thread::sleep_for(options.remapSettle);
  }

  // Waits until the server has applied our map changes, and brings Xlib's copy of the
  // map up to date with them (the MappingNotify events would pile up unread otherwise).
  void syncMapping() {
    XSync(dpy(), False);
    XEvent event;
    while (XCheckTypedEvent(dpy(), MappingNotify, &event)) XRefreshKeyboardMapping(&event.xmapping);
  }

  void sendKey(KeyCode keycode, bool down) { XTestFakeKeyEvent(dpy(), keycode, down ? True : False, CurrentTime); }

  void sendKeysym(KeySym keysym, bool down) {
    KeyCode keycode = XKeysymToKeycode(dpy(), keysym);
    if (keycode) sendKey(keycode, down);
  }

  void typeAt(KeyLocation location) {
    if (location.shifted) sendKeysym(XK_Shift_L, true);
    sendKey(location.keycode, true);
    sendKey(location.keycode, false);
    if (location.shifted) sendKeysym(XK_Shift_L, false);
  }

  // Types up to as many characters as there are spare keycodes in one remapping.
  void typeRun(const std::vector<KeySym>& keysyms, int group) {
    std::map<KeySym, KeyCode> borrowed;
    for (KeySym keysym : keysyms) {
      if (keysym == NoSymbol || locate(keysym, group).keycode || borrowed.count(keysym)) continue;
      if (borrowed.size() == spareKeycodes.size()) break;
      borrowed[keysym] = spareKeycodes[borrowed.size()];
    }
    for (const auto& [keysym, keycode] : borrowed) setMapping(keycode, keysym);
    if (!borrowed.empty()) settle();
    for (KeySym keysym : keysyms) {
      if (keysym == NoSymbol) continue;
      if (auto it = borrowed.find(keysym); it != borrowed.end()) {
        typeAt({it->second, false});
        continue;
      }
      if (KeyLocation location = locate(keysym, group); location.keycode) typeAt(location);
    }
    if (borrowed.empty()) {
      XFlush(dpy());
      return;
    }
    settle();  // the keys must be read against the borrowed map before it goes
    for (const auto& [keysym, keycode] : borrowed) setMapping(keycode, NoSymbol);
    syncMapping();
  }
};

// The pause after a keyboard map change, measured under Xvfb with xfwm4 (2 cores): a
// GTK 3 entry and a Qt 6 line edit got every remapped character of "héllo wörld ✓ Ωμέγα"
// from 5 ms on; with no pause GTK typed other characters (the keys were read against
// the next map). The default of 20 ms leaves room for a busy machine.
X11Input::X11Input(std::shared_ptr<X11Display> display) : X11Input(std::move(display), Options{}) {}

X11Input::X11Input(std::shared_ptr<X11Display> display, Options options)
    : impl_(std::make_unique<Impl>(Impl{std::move(display), options})) {}

X11Input::~X11Input() {
  // Give back keycodes of keys still held down.
  for (const auto& [virtualKey, keycode] : impl_->heldRemaps) {
    impl_->sendKey(keycode, false);
    impl_->setMapping(keycode, NoSymbol);
  }
  if (!impl_->heldRemaps.empty()) impl_->syncMapping();
}

void X11Input::mouseMoved(Point at) {
  XTestFakeMotionEvent(impl_->dpy(), impl_->display->screen(), clampedCoordinate(at.x), clampedCoordinate(at.y),
                       CurrentTime);
  XFlush(impl_->dpy());
}

void X11Input::mouseButton(Point at, MouseButton button, bool down, int /*clickState*/) {
  Display* dpy = impl_->dpy();
  XTestFakeMotionEvent(dpy, impl_->display->screen(), clampedCoordinate(at.x), clampedCoordinate(at.y), CurrentTime);
  XTestFakeButtonEvent(dpy, button == MouseButton::right ? 3 : 1, down ? True : False, CurrentTime);
  XFlush(dpy);
}

void X11Input::key(uint16_t virtualKey, uint64_t flags, bool down) {
  Impl& d = *impl_;
  auto known = VirtualKeys::keysym(virtualKey);
  if (!known) return;
  KeySym keysym = *known;

  if (down) {
    for (const Modifier& modifier : kModifiers)
      if (flags & modifier.flag) d.sendKeysym(modifier.keysym, true);
    KeyCode keycode = XKeysymToKeycode(d.dpy(), keysym);
    if (!keycode) {  // a key this keyboard map lacks: borrow a spare keycode while it is down
      d.scanSpareKeycodes();
      if (d.spareKeycodes.empty() || d.heldRemaps.count(virtualKey)) return;
      keycode = d.spareKeycodes.back();
      for (const auto& [held, used] : d.heldRemaps)
        if (used == keycode) return;
      d.setMapping(keycode, keysym);
      d.settle();
      d.heldRemaps[virtualKey] = keycode;
    }
    d.sendKey(keycode, true);
    XFlush(d.dpy());
    return;
  }

  if (auto held = d.heldRemaps.find(virtualKey); held != d.heldRemaps.end()) {
    d.sendKey(held->second, false);
    d.settle();
    d.setMapping(held->second, NoSymbol);
    d.syncMapping();
    d.heldRemaps.erase(held);
  } else if (KeyCode keycode = XKeysymToKeycode(d.dpy(), keysym)) {
    d.sendKey(keycode, false);
  }
  for (auto it = std::rbegin(kModifiers); it != std::rend(kModifiers); ++it)
    if (flags & it->flag) d.sendKeysym(it->keysym, false);
  XFlush(d.dpy());
}

void X11Input::text(const std::string& chunk) {
  Impl& d = *impl_;
  std::vector<KeySym> keysyms;
  for (char32_t point : codePoints(chunk)) keysyms.push_back(keysymForCodePoint(point));
  d.scanSpareKeycodes();
  int group = d.activeGroup();
  // Runs of characters that fit the spare keycodes, one remapping each.
  size_t begin = 0;
  while (begin < keysyms.size()) {
    size_t end = begin;
    std::vector<KeySym> missing;
    while (end < keysyms.size()) {
      KeySym keysym = keysyms[end];
      bool needsSpare = keysym != NoSymbol && !d.locate(keysym, group).keycode &&
                        std::find(missing.begin(), missing.end(), keysym) == missing.end();
      if (needsSpare) {
        if (missing.size() == d.spareKeycodes.size()) break;
        missing.push_back(keysym);
      }
      ++end;
    }
    if (end == begin) {
      // No spare keycode at all: this character can't be typed; the rest still is.
      Log::info("typing: the keyboard map has no free keycode for a character; it was left out");
      ++begin;
      continue;
    }
    d.typeRun({keysyms.begin() + begin, keysyms.begin() + end}, group);
    begin = end;
  }
}

void X11Input::scroll(int32_t vertical, int32_t horizontal) {
  Display* dpy = impl_->dpy();
  auto clicks = [](int64_t amount) -> int {
    if (amount == 0) return 0;
    int64_t count = (std::llabs(amount) + kPixelsPerWheelClick / 2) / kPixelsPerWheelClick;
    return static_cast<int>(std::clamp<int64_t>(count, 1, kMaxWheelClicks));
  };
  // Buttons 4/5 turn the wheel up/down, 6/7 left/right.
  auto turn = [dpy](unsigned int button, int count) {
    for (int i = 0; i < count; ++i) {
      XTestFakeButtonEvent(dpy, button, True, CurrentTime);
      XTestFakeButtonEvent(dpy, button, False, CurrentTime);
    }
  };
  turn(vertical > 0 ? 4 : 5, clicks(vertical));
  turn(horizontal > 0 ? 6 : 7, clicks(horizontal));
  XFlush(dpy);
}

}  // namespace zorvane
