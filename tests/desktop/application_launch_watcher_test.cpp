#include "platform/x11/x11_application_launch_watcher.h"

#include <gtest/gtest.h>
// After gtest: Xlib defines macros (None, Bool) that gtest's names would meet.
#include <X11/Xatom.h>
#include <unistd.h>

#include <algorithm>

#include "core/base/run_loop.h"
#include "desktop/desktop_apps.h"
#include "platform/x11/x11_display.h"
#include "platform/x11/x11_window_service.h"

namespace zorvane {
namespace {

using namespace std::chrono_literals;
using testing::DesktopApp;

// A top-level window of this process, with its pid set as applications set it.
Window openWindow(X11Display& display) {
  Display* dpy = display.display();
  Window window = XCreateSimpleWindow(dpy, display.root(), 10, 10, 120, 80, 0, 0, 0);
  unsigned long pid = static_cast<unsigned long>(getpid());
  XChangeProperty(dpy, window, display.atoms().netWMPID, XA_CARDINAL, 32, PropModeReplace,
                  reinterpret_cast<unsigned char*>(&pid), 1);
  XMapWindow(dpy, window);
  XFlush(dpy);
  return window;
}

// A program with two windows, each with the pid set: Python through libX11. It prints
// "window <id>" for each and stays until its input ends.
constexpr const char* kTwoWindows = R"(
import ctypes, os, sys
x = ctypes.CDLL("libX11.so.6")
x.XOpenDisplay.restype = ctypes.c_void_p
x.XOpenDisplay.argtypes = [ctypes.c_char_p]
x.XDefaultRootWindow.restype = ctypes.c_ulong
x.XDefaultRootWindow.argtypes = [ctypes.c_void_p]
x.XCreateSimpleWindow.restype = ctypes.c_ulong
x.XCreateSimpleWindow.argtypes = [ctypes.c_void_p, ctypes.c_ulong] + [ctypes.c_int] * 2 + [ctypes.c_uint] * 3 + [ctypes.c_ulong] * 2
x.XInternAtom.restype = ctypes.c_ulong
x.XInternAtom.argtypes = [ctypes.c_void_p, ctypes.c_char_p, ctypes.c_int]
x.XChangeProperty.argtypes = [ctypes.c_void_p] + [ctypes.c_ulong] * 3 + [ctypes.c_int] * 2 + [ctypes.c_void_p, ctypes.c_int]
x.XMapWindow.argtypes = [ctypes.c_void_p, ctypes.c_ulong]
x.XFlush.argtypes = [ctypes.c_void_p]
d = x.XOpenDisplay(None)
pid = ctypes.c_long(os.getpid())
for i in range(2):
    w = x.XCreateSimpleWindow(d, x.XDefaultRootWindow(d), 10 + 60 * i, 10, 100, 60, 0, 0, 0)
    x.XChangeProperty(d, w, x.XInternAtom(d, b"_NET_WM_PID", 0), 6, 32, 0, ctypes.byref(pid), 1)
    x.XMapWindow(d, w)
    x.XFlush(d)
    print("window", w, flush=True)
sys.stdin.read()
)";

bool isListed(X11Display& display, Window window) {
  auto list = display.cardinals(display.root(), display.atoms().netClientList, XA_WINDOW);
  return list && std::count(list->begin(), list->end(), window) > 0;
}

// A program that starts is reported once, with its pid (from XRes for xmessage, which
// sets no _NET_WM_PID) and its name; a second window of a known process is no launch,
// nor is a window of this process; nothing is reported while stopped.
TEST(X11ApplicationLaunchWatcher, ReportsEachNewProcessOnce) {
  auto display = X11Display::open();
  if (!display) GTEST_SKIP() << "no X display; run under scripts/headless-desktop.sh";
  if (testing::findProgram("xmessage").empty() || testing::findProgram("python3").empty())
    GTEST_SKIP() << "xmessage (x11-utils) or python3 is not installed";
  RunLoop loop;
  auto made = X11ApplicationLaunchWatcher::create(loop);
  ASSERT_TRUE(made) << made.error();
  auto& watcher = *made;
  std::vector<ApplicationLaunch> launches;
  watcher->onLaunch = [&](const ApplicationLaunch& launch) { launches.push_back(launch); };
  auto launchesOf = [&](int32_t pid) {
    return std::count_if(launches.begin(), launches.end(), [pid](const auto& launch) { return launch.pid == pid; });
  };
  auto waitForLaunch = [&](int32_t pid) { return loop.runUntil([&] { return launchesOf(pid) > 0; }, 20.0); };
  ASSERT_TRUE(watcher->start());

  auto twoWindows = DesktopApp::start({"python3", "-c", kTwoWindows});
  ASSERT_TRUE(twoWindows);
  auto firstLine = twoWindows->waitForLine("window ", 20s);
  auto secondLine = twoWindows->waitForLine("window ", 20s, 1);
  ASSERT_TRUE(firstLine && secondLine);
  Window first = std::stoul(firstLine->substr(7)), second = std::stoul(secondLine->substr(7));
  Window own = openWindow(*display);
  ASSERT_TRUE(waitForLaunch(twoWindows->pid()));
  ASSERT_TRUE(testing::waitUntil(
      [&] { return isListed(*display, first) && isListed(*display, second) && isListed(*display, own); }, 10s));

  auto app = DesktopApp::start({"xmessage", "hi"});
  ASSERT_TRUE(app);
  ASSERT_TRUE(waitForLaunch(app->pid()));
  auto launch = *std::find_if(launches.begin(), launches.end(), [&](const auto& l) { return l.pid == app->pid(); });
  EXPECT_EQ(launch.application.name, "xmessage");
  EXPECT_FALSE(launch.application.bundleID.empty());
  EXPECT_NE(launch.windowID, 0u);
  // The xmessage launch came after all three windows were listed, so any other launch
  // would have come before it.
  EXPECT_EQ(launchesOf(twoWindows->pid()), 1);
  EXPECT_EQ(launchesOf(getpid()), 0);
  EXPECT_EQ(launches.size(), 2u);

  watcher->stop();
  auto unseen = DesktopApp::start({"xmessage", "unseen"});
  ASSERT_TRUE(unseen);
  X11WindowService windows(display);
  ASSERT_TRUE(testing::waitForWindow(windows, unseen->pid(), 10s));
  ASSERT_TRUE(watcher->start());  // what runs now, the unseen one too, is the baseline
  auto seen = DesktopApp::start({"xmessage", "seen"});
  ASSERT_TRUE(seen);
  ASSERT_TRUE(waitForLaunch(seen->pid()));
  EXPECT_EQ(launchesOf(unseen->pid()), 0);
}

}  // namespace
}  // namespace zorvane
