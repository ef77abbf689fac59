#include "platform/x11/x11_input_monitor.h"

#include <X11/XKBlib.h>
#include <X11/extensions/XInput2.h>

#include <map>

#include "core/base/log.h"
#include "core/base/utf8.h"
#include "platform/x11/event_connection.h"
#include "platform/x11/virtual_keys.h"

namespace zorvane {

namespace {

// The text a keysym types: Latin-1 keysyms are their code point, Unicode ones carry it
// above 0x1000000; everything else (function keys, modifiers) types nothing visible.
std::string charactersOf(KeySym keysym) {
  if ((keysym >= 0x20 && keysym <= 0x7E) || (keysym >= 0xA0 && keysym <= 0xFF))
    return encodeUTF8(static_cast<char32_t>(keysym));
  if (keysym >= 0x1000100 && keysym <= 0x110FFFF) {
    char32_t point = static_cast<char32_t>(keysym - 0x1000000);
    if (point >= 0xD800 && point <= 0xDFFF) return "";
    return encodeUTF8(point);
  }
  return "";
}

// X button numbers to the caller's: 1 left, 3 right, 2 middle, 4-7 the wheels (not
// buttons), 8 and up the others.
std::optional<int> buttonOf(int detail) {
  switch (detail) {
    case 1: return 0;
    case 3: return 1;
    case 2: return 2;
    case 4: case 5: case 6: case 7: return std::nullopt;
    default: return detail >= 8 ? std::optional<int>(detail - 5) : std::nullopt;
  }
}

}  // namespace

struct X11InputMonitor::Impl {
  MainQueue& queue;
  std::unique_ptr<EventConnection> connection;
  X11InputMonitor* owner = nullptr;
  // Main queue.
  std::shared_ptr<int> alive = std::make_shared<int>(0);
  // What threads hold: a copy made before they start, so the owner can drop `alive`
  // while they run.
  const std::weak_ptr<int> aliveToken = alive;
  uint64_t generation = 0;  // which start() posted events must belong to

  // Set once, before the reader thread starts.
  int opcode = -1;
  std::string problem;  // why there is no XInput 2, "" when there is

  // Reader thread.
  uint64_t readerGeneration = 0;
  InputInterest interest;
  VirtualKeys::ModifierMasks masks;
  // The modifiers held, followed through the raw key events themselves: by the time an
  // event is read, a quick typist (or XTest) may have let go of them already.
  std::map<KeyCode, unsigned int> modifierKeys;  // keycode -> its modifier's mask
  std::map<KeyCode, unsigned int> heldKeys;      // modifier keys down now
  unsigned int heldState = 0;
  bool motionPending = false;
  std::optional<Point> lastMotion;

  Impl(MainQueue& queue, std::unique_ptr<EventConnection> connection)
      : queue(queue), connection(std::move(connection)) {}

  void findExtension(Display* display) {
    int event = 0, error = 0;
    if (!XQueryExtension(display, "XInputExtension", &opcode, &event, &error)) {
      problem = "input monitor: the X server has no XInput extension";
      return;
    }
    int major = 2, minor = 2;
    if (XIQueryVersion(display, &major, &minor) != Success || major < 2)
      problem = "input monitor: the X server's XInput is older than 2.0";
  }

  Expected<void> select(Display* display, uint64_t id, InputInterest interest) {
    unsigned char bits[XIMaskLen(XI_LASTEVENT)] = {};
    // Keys are always read while started: the modifiers come from them.
    if (id != 0) {
      XISetMask(bits, XI_RawKeyPress);
      XISetMask(bits, XI_RawKeyRelease);
    }
    if (interest.buttons) {
      XISetMask(bits, XI_RawButtonPress);
      XISetMask(bits, XI_RawButtonRelease);
    }
    if (interest.motion) XISetMask(bits, XI_RawMotion);
    XIEventMask mask{XIAllMasterDevices, static_cast<int>(sizeof bits), bits};
    unsigned long mark = connection->errorMark();
    XISelectEvents(display, connection->root(), &mask, 1);
    if (auto errors = connection->errorSince(mark); !errors.empty())
      return Failure{"input monitor: the X server refused the raw events (error " +
                     std::to_string(errors.front().code) + ")"};
    readModifierMap(display);
    this->interest = interest;
    readerGeneration = id;
    motionPending = false;
    lastMotion.reset();
    return ok();
  }

  void readModifierMap(Display* display) {
    masks = VirtualKeys::ModifierMasks::of(display);
    modifierKeys.clear();
    heldKeys.clear();
    if (XModifierKeymap* map = XGetModifierMapping(display)) {
      for (int modifier = 0; modifier < 8; ++modifier)
        for (int i = 0; i < map->max_keypermod; ++i)
          if (KeyCode code = map->modifiermap[modifier * map->max_keypermod + i]) modifierKeys[code] = 1u << modifier;
      XFreeModifiermap(map);
    }
    // What is held at the start can only be asked for; later its release is seen.
    heldState = pointer(display).second;
  }

  void followModifiers(KeyCode keycode, bool down) {
    auto modifier = modifierKeys.find(keycode);
    if (modifier == modifierKeys.end()) return;
    if (down) {
      heldKeys[keycode] = modifier->second;
      heldState |= modifier->second;
      return;
    }
    heldKeys.erase(keycode);
    bool stillHeld = false;
    for (const auto& [code, mask] : heldKeys) stillHeld = stillHeld || mask == modifier->second;
    if (!stillHeld) heldState &= ~modifier->second;
  }

  // Where the pointer is now, and the server's modifier state.
  std::pair<Point, unsigned int> pointer(Display* display) {
    Window root = 0, child = 0;
    int rootX = 0, rootY = 0, x = 0, y = 0;
    unsigned int state = 0;
    XQueryPointer(display, connection->root(), &root, &child, &rootX, &rootY, &x, &y, &state);
    return {Point{double(rootX), double(rootY)}, state};
  }

  void post(InputEvent event) {
    queue.post([weak = aliveToken, owner = owner, id = readerGeneration, event = std::move(event)] {
      if (weak.expired() || owner->impl_->generation != id) return;
      auto callback = owner->onEvent;  // a copy: it may drop the owner
      if (callback) callback(event);
    });
  }

  // Reader thread.
  void handle(XEvent& event) {
    if (event.type == MappingNotify) {
      XRefreshKeyboardMapping(&event.xmapping);
      if (readerGeneration != 0) readModifierMap(connection->display());
      return;
    }
    if (event.type != GenericEvent || event.xcookie.extension != opcode || readerGeneration == 0) return;
    Display* display = connection->display();
    if (!XGetEventData(display, &event.xcookie)) return;
    const auto* raw = static_cast<const XIRawEvent*>(event.xcookie.data);
    InputEvent out;
    bool deliver = true;
    switch (event.xcookie.evtype) {
      case XI_RawKeyPress:
      case XI_RawKeyRelease: {
        bool down = event.xcookie.evtype == XI_RawKeyPress;
        out.kind = down ? InputEvent::Kind::keyDown : InputEvent::Kind::keyUp;
        out.keyCode = static_cast<uint32_t>(raw->detail);
        // The event itself is reported with the modifiers held before it.
        out.modifiers = masks.flagsOf(heldState);
        followModifiers(static_cast<KeyCode>(raw->detail), down);
        deliver = interest.keys;
        KeySym keysym = XkbKeycodeToKeysym(display, static_cast<KeyCode>(raw->detail), 0, 0);
        out.virtualKey = VirtualKeys::virtualKey(keysym);
        out.characters = charactersOf(keysym);
        break;
      }
      case XI_RawButtonPress:
      case XI_RawButtonRelease: {
        auto button = buttonOf(raw->detail);
        if (!button) {
          deliver = false;
          break;
        }
        out.kind = event.xcookie.evtype == XI_RawButtonPress ? InputEvent::Kind::buttonDown
                                                             : InputEvent::Kind::buttonUp;
        out.button = *button;
        out.modifiers = masks.flagsOf(heldState);
        break;
      }
      case XI_RawMotion:
        motionPending = true;
        deliver = false;
        break;
      default:
        deliver = false;
    }
    XFreeEventData(display, &event.xcookie);
    if (!deliver) return;
    // Motion read before this event comes first, so the order stays the user's.
    flushMotion();
    out.location = pointer(display).first;
    post(std::move(out));
  }

  void flushMotion() {
    if (!motionPending) return;
    motionPending = false;
    Point location = pointer(connection->display()).first;
    if (lastMotion && *lastMotion == location) return;
    lastMotion = location;
    InputEvent moved;
    moved.kind = InputEvent::Kind::pointerMoved;
    moved.location = location;
    moved.modifiers = masks.flagsOf(heldState);
    post(std::move(moved));
  }
};

Expected<std::unique_ptr<X11InputMonitor>> X11InputMonitor::create(MainQueue& queue,
                                                                   const std::string& displayName) {
  auto connection = EventConnection::open("input monitor", displayName);
  if (!connection) return Failure{connection.error()};
  auto impl = std::make_unique<Impl>(queue, std::move(*connection));
  impl->findExtension(impl->connection->display());
  auto monitor = std::unique_ptr<X11InputMonitor>(new X11InputMonitor(std::move(impl)));
  Impl* state = monitor->impl_.get();
  state->connection->onEvent = [state](XEvent& event) { state->handle(event); };
  state->connection->afterEvents = [state] { state->flushMotion(); };
  state->connection->start();
  return monitor;
}

X11InputMonitor::X11InputMonitor(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) { impl_->owner = this; }

X11InputMonitor::~X11InputMonitor() {
  impl_->alive.reset();
  impl_->connection.reset();  // joins the reader thread before the state it uses goes
}

Expected<void> X11InputMonitor::start(InputInterest interest) {
  if (!impl_->problem.empty()) return Failure{impl_->problem};
  uint64_t id = ++impl_->generation;
  auto result = std::make_shared<std::optional<Expected<void>>>();
  Impl* state = impl_.get();
  auto called = state->connection->call(
      [state, result, id, interest](Display* display) { *result = state->select(display, id, interest); });
  if (!called) return called;
  return result->value_or(Failure{"input monitor: no answer"});
}

void X11InputMonitor::stop() {
  ++impl_->generation;
  Impl* state = impl_.get();
  auto called = state->connection->call([state](Display* display) {
    (void)state->select(display, 0, InputInterest{});
  });
  if (!called) Log::info(called.error());
}

}  // namespace zorvane
