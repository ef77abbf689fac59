#include "platform/x11/x11_hot_key.h"

#include <X11/XKBlib.h>

#include <vector>

#include "core/base/log.h"
#include "platform/x11/event_connection.h"
#include "platform/x11/virtual_keys.h"

namespace zorvane {

namespace {

// "Ctrl+Alt+space", for messages.
std::string describe(uint16_t virtualKey, uint64_t flags) {
  std::string text;
  if (flags & KeyFlags::command) text += "Super+";
  if (flags & KeyFlags::control) text += "Ctrl+";
  if (flags & KeyFlags::option) text += "Alt+";
  if (flags & KeyFlags::shift) text += "Shift+";
  return text + VirtualKeys::name(virtualKey);
}

// Every combination of the lock modifiers the keyboard map has, starting with none.
std::vector<unsigned int> lockCombinations(const VirtualKeys::ModifierMasks& masks) {
  std::vector<unsigned int> locks;
  for (unsigned int mask : {masks.capsLock, masks.numLock, masks.scrollLock}) {
    bool known = mask == 0;
    for (unsigned int seen : locks) known = known || seen == mask;
    if (!known) locks.push_back(mask);
  }
  std::vector<unsigned int> combinations;
  for (unsigned int subset = 0; subset < (1u << locks.size()); ++subset) {
    unsigned int state = 0;
    for (size_t i = 0; i < locks.size(); ++i)
      if (subset & (1u << i)) state |= locks[i];
    combinations.push_back(state);
  }
  return combinations;
}

}  // namespace

struct X11HotKey::Impl {
  MainQueue& queue;
  std::unique_ptr<EventConnection> connection;
  X11HotKey* owner = nullptr;
  // Main queue: expires when the owner goes, so posted presses are dropped.
  std::shared_ptr<int> alive = std::make_shared<int>(0);
  // What threads hold: a copy made before they start, so the owner can drop `alive`
  // while they run.
  const std::weak_ptr<int> aliveToken = alive;
  // Main queue: which registration the posted presses must belong to.
  uint64_t registration = 0;

  // Reader thread: the key as grabbed now.
  struct Grab {
    uint64_t registration = 0;
    uint16_t virtualKey = 0;
    uint64_t flags = 0;
    KeyCode keycode = 0;
    unsigned int state = 0;
    std::vector<unsigned int> locks;
    bool down = false;
  };
  std::optional<Grab> grab;

  Impl(MainQueue& queue, std::unique_ptr<EventConnection> connection)
      : queue(queue), connection(std::move(connection)) {}

  Expected<void> grabKey(Display* display, uint64_t id, uint16_t virtualKey, uint64_t flags) {
    ungrabKey(display);
    std::string which = "hot key " + describe(virtualKey, flags);
    auto keysym = VirtualKeys::keysym(virtualKey);
    if (!keysym) return Failure{which + ": not a key code this program knows"};
    KeyCode keycode = XKeysymToKeycode(display, *keysym);
    if (keycode == 0) return Failure{which + ": no key of this keyboard makes it"};
    auto masks = VirtualKeys::ModifierMasks::of(display);
    auto state = masks.stateOf(flags);
    if (!state) return Failure{which + ": a modifier it needs is on no key of this keyboard"};

    Grab wanted{id, virtualKey, flags, keycode, *state, lockCombinations(masks)};
    unsigned long mark = connection->errorMark();
    for (unsigned int locks : wanted.locks)
      XGrabKey(display, keycode, *state | locks, connection->root(), False, GrabModeAsync, GrabModeAsync);
    auto errors = connection->errorSince(mark);
    if (errors.empty()) {
      grab = wanted;
      return ok();
    }
    for (unsigned int locks : wanted.locks) XUngrabKey(display, keycode, *state | locks, connection->root());
    XSync(display, False);
    for (const auto& error : errors)
      if (error.code == BadAccess) return Failure{which + ": another program holds it"};
    return Failure{which + ": the X server refused the grab (error " + std::to_string(errors.front().code) + ")"};
  }

  void ungrabKey(Display* display) {
    if (!grab) return;
    for (unsigned int locks : grab->locks)
      XUngrabKey(display, grab->keycode, grab->state | locks, connection->root());
    XSync(display, False);
    grab.reset();
  }

  void post(uint64_t id, bool press) {
    queue.post([weak = aliveToken, owner = owner, id, press] {
      if (weak.expired() || owner->impl_->registration != id) return;
      auto callback = press ? owner->onPress : owner->onRelease;  // a copy: it may drop the owner
      if (callback) callback();
    });
  }

  // Reader thread.
  void handle(XEvent& event) {
    if (event.type == MappingNotify) {
      XRefreshKeyboardMapping(&event.xmapping);
      if (!grab || event.xmapping.request == MappingPointer) return;
      Grab old = *grab;
      if (auto again = grabKey(connection->display(), old.registration, old.virtualKey, old.flags); !again)
        Log::info(again.error() + " (after a keyboard map change)");
      return;
    }
    if ((event.type != KeyPress && event.type != KeyRelease) || !grab) return;
    if (event.xkey.keycode != grab->keycode) return;
    bool press = event.type == KeyPress;
    if (press == grab->down) return;  // auto-repeat
    grab->down = press;
    post(grab->registration, press);
  }
};

Expected<std::unique_ptr<X11HotKey>> X11HotKey::create(MainQueue& queue, const std::string& displayName) {
  auto connection = EventConnection::open("hot key", displayName);
  if (!connection) return Failure{connection.error()};
  // Without this a held key repeats as release-press pairs; with it, as presses only.
  XkbSetDetectableAutoRepeat((*connection)->display(), True, nullptr);
  auto impl = std::make_unique<Impl>(queue, std::move(*connection));
  auto hotKey = std::unique_ptr<X11HotKey>(new X11HotKey(std::move(impl)));
  Impl* state = hotKey->impl_.get();
  state->connection->onEvent = [state](XEvent& event) { state->handle(event); };
  state->connection->start();
  return hotKey;
}

X11HotKey::X11HotKey(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) { impl_->owner = this; }

X11HotKey::~X11HotKey() {
  impl_->alive.reset();
  Impl* state = impl_.get();
  (void)state->connection->call([state](Display* display) { state->ungrabKey(display); });
  state->connection.reset();  // joins the reader thread before the state it uses goes
}

Expected<void> X11HotKey::registerKey(uint16_t virtualKey, uint64_t flags) {
  uint64_t id = ++impl_->registration;
  auto result = std::make_shared<std::optional<Expected<void>>>();
  Impl* state = impl_.get();
  auto called = state->connection->call([state, result, id, virtualKey, flags](Display* display) {
    *result = state->grabKey(display, id, virtualKey, flags);
  });
  if (!called) return called;
  return result->value_or(Failure{"hot key: no answer"});
}

void X11HotKey::unregisterKey() {
  ++impl_->registration;
  Impl* state = impl_.get();
  if (auto called = state->connection->call([state](Display* display) { state->ungrabKey(display); }); !called)
    Log::info(called.error());
}

}  // namespace zorvane
