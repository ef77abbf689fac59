#include "platform/x11/x11_input_monitor.h"

#include <gtest/gtest.h>
// After gtest: Xlib defines macros (None, Bool) that gtest's names would meet.
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>

#include "core/base/run_loop.h"
#include "platform/x11/x11_display.h"

namespace zorvane {
namespace {

using Kind = InputEvent::Kind;

// XTest motion, a click and a key with a modifier, made on another connection, all reach
// the monitor with where the pointer was and what was held; nothing comes while it is
// stopped.
TEST(X11InputMonitor, SeesPointerAndKeysOfEveryClient) {
  auto display = X11Display::open();
  if (!display) GTEST_SKIP() << "no X display; run under scripts/headless-desktop.sh";
  Display* dpy = display->display();
  // Synced: the server has handled the key before the test goes on (starts, stops).
  auto key = [dpy](KeySym keysym, bool down) {
    XTestFakeKeyEvent(dpy, XKeysymToKeycode(dpy, keysym), down, 0);
    XSync(dpy, False);
  };
  RunLoop loop;
  auto made = X11InputMonitor::create(loop);
  ASSERT_TRUE(made) << made.error();
  auto& monitor = *made;
  std::vector<InputEvent> events;
  monitor->onEvent = [&](const InputEvent& event) { events.push_back(event); };
  auto waitFor = [&](Kind kind, const std::function<bool(const InputEvent&)>& also) -> std::optional<InputEvent> {
    std::optional<InputEvent> found;
    loop.runUntil(
        [&] {
          for (const auto& event : events)
            if (event.kind == kind && also(event)) found = event;
          return found.has_value();
        },
        10.0);
    return found;
  };

  ASSERT_TRUE(monitor->start({.keys = true, .buttons = true, .motion = true}));
  XTestFakeMotionEvent(dpy, -1, 210, 155, 0);
  XFlush(dpy);
  auto moved = waitFor(Kind::pointerMoved, [](const InputEvent& e) { return e.location == Point{210, 155}; });
  ASSERT_TRUE(moved) << "no motion to 210,155";

  XTestFakeButtonEvent(dpy, 3, True, 0);
  XTestFakeButtonEvent(dpy, 3, False, 0);
  XFlush(dpy);
  ASSERT_TRUE(waitFor(Kind::buttonUp, [](const InputEvent& e) { return e.button == 1; }));
  auto down = waitFor(Kind::buttonDown, [](const InputEvent&) { return true; });
  ASSERT_TRUE(down);
  EXPECT_EQ(down->button, 1) << "the right button";
  EXPECT_EQ(down->location, (Point{210, 155}));

  key(XK_Control_L, true);
  key(XK_period, true);
  key(XK_period, false);
  key(XK_Control_L, false);
  auto period = waitFor(Kind::keyDown, [](const InputEvent& e) { return e.characters == "."; });
  ASSERT_TRUE(period);
  EXPECT_EQ(period->virtualKey, 47);
  EXPECT_EQ(period->modifiers, KeyFlags::control);
  ASSERT_TRUE(waitFor(Kind::keyUp, [](const InputEvent& e) { return e.characters == "."; }));

  monitor->stop();
  key(XK_a, true);
  key(XK_a, false);
  ASSERT_TRUE(monitor->start({.keys = true}));
  key(XK_b, true);
  key(XK_b, false);
  ASSERT_TRUE(waitFor(Kind::keyUp, [](const InputEvent& e) { return e.characters == "b"; }));
  for (const auto& event : events) EXPECT_NE(event.characters, "a") << "a key came while stopped";
}

}  // namespace
}  // namespace zorvane
