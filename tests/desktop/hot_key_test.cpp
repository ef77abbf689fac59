#include "platform/x11/x11_hot_key.h"

#include <gtest/gtest.h>
// After gtest: Xlib defines macros (None, Bool) that gtest's names would meet.
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>

#include <vector>

#include "core/base/run_loop.h"
#include "platform/x11/x11_display.h"

namespace zorvane {
namespace {

// Presses the keys in order and releases them in reverse, as a user would, through XTest
// on the test's own connection.
void tap(Display* display, const std::vector<KeySym>& keys) {
  for (KeySym key : keys) XTestFakeKeyEvent(display, XKeysymToKeycode(display, key), True, 0);
  for (auto key = keys.rbegin(); key != keys.rend(); ++key)
    XTestFakeKeyEvent(display, XKeysymToKeycode(display, *key), False, 0);
  XSync(display, False);  // handled by the server before the test goes on
}

// The registered combination reaches the hot key (press, then release), with the lock
// keys on too, and nothing else does; a combination another client holds is refused
// with a reason; an unregistered key is quiet.
TEST(X11HotKey, ReceivesItsKeyAndReportsConflicts) {
  auto display = X11Display::open();
  if (!display) GTEST_SKIP() << "no X display; run under scripts/headless-desktop.sh";
  Display* dpy = display->display();
  RunLoop loop;
  auto made = X11HotKey::create(loop);
  ASSERT_TRUE(made) << made.error();
  auto& hotKey = *made;
  int presses = 0, releases = 0;
  hotKey->onPress = [&] { EXPECT_EQ(presses++, releases) << "a press before the last release"; };
  hotKey->onRelease = [&] { ++releases; };
  auto waitForReleases = [&](int count) { return loop.runUntil([&] { return releases >= count; }, 10.0); };

  const std::vector<KeySym> combination = {XK_Control_L, XK_Alt_L, XK_Shift_L, XK_z};
  ASSERT_TRUE(hotKey->registerKey(6 /* z */, KeyFlags::control | KeyFlags::option | KeyFlags::shift));
  tap(dpy, combination);
  ASSERT_TRUE(waitForReleases(1));
  EXPECT_EQ(presses, 1);

  tap(dpy, {XK_Num_Lock});
  tap(dpy, {XK_Caps_Lock});
  tap(dpy, combination);
  bool withLocks = waitForReleases(2);
  tap(dpy, {XK_Num_Lock});  // back as they were, whatever happened
  tap(dpy, {XK_Caps_Lock});
  ASSERT_TRUE(withLocks) << "the key didn't come with Num Lock and Caps Lock on";

  // Part of the combination is not the combination: the next full press is the third.
  tap(dpy, {XK_Control_L, XK_Alt_L, XK_z});
  tap(dpy, combination);
  ASSERT_TRUE(waitForReleases(3));
  EXPECT_EQ(presses, 3);

  auto other = X11Display::open();
  ASSERT_TRUE(other);
  XGrabKey(other->display(), XKeysymToKeycode(other->display(), XK_F5), ControlMask | ShiftMask, other->root(), False,
           GrabModeAsync, GrabModeAsync);
  XSync(other->display(), False);
  auto taken = hotKey->registerKey(96 /* F5 */, KeyFlags::control | KeyFlags::shift);
  ASSERT_FALSE(taken);
  EXPECT_EQ(taken.error(), "hot key Ctrl+Shift+F5: another program holds it");

  // After the refusal no key is ours; the unregistered one stays quiet, a new one works.
  ASSERT_TRUE(hotKey->registerKey(6, KeyFlags::control | KeyFlags::option | KeyFlags::shift));
  hotKey->unregisterKey();
  tap(dpy, combination);
  ASSERT_TRUE(hotKey->registerKey(7 /* x */, KeyFlags::control | KeyFlags::option));
  tap(dpy, {XK_Control_L, XK_Alt_L, XK_x});
  ASSERT_TRUE(waitForReleases(4));
  EXPECT_EQ(presses, 4);
}

}  // namespace
}  // namespace zorvane
