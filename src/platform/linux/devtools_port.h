// Finding the DevTools port of the Chromium-family browser that owns a window, from the
// window's process.
//
// A window's process may be the browser itself or one of its helpers (renderer, GPU,
// zygote), which carry a --type= argument; the walk goes up the parents to the first
// process without one, the browser. Its port is the value of --remote-debugging-port
// when that is above 0; otherwise (0, or no such argument but a debugging server
// switched on from inside the browser) the first line of DevToolsActivePort in its
// profile folder (--user-data-dir, else the browser's default folder under the
// browser's XDG config home).
//
// A port number proves nothing by itself: DevToolsActivePort outlives the browser that
// wrote it, and a flag names the port the browser was asked for, not who holds it now.
// Whoever listens there would be handed the agent's scripts and would answer in the
// browser's name. So a port is given out only when every socket that listens on it for
// 127.0.0.1 (bound to 127.0.0.1, 0.0.0.0, :: or ::ffff:127.0.0.1, from
// <procRoot>/net/tcp and tcp6) is an open file of the browser process itself (found in
// <procRoot>/<pid>/fd). The check is made on every call, just before the connection;
// what remains is the moment between the two.
//
// Failures are whole sentences for the user or the agent: the process isn't a browser,
// the browser has no debugging port (with how to start it with one), the process is
// gone, another program holds the port (named when it can be found).
// /proc is read below `procRoot` so that tests can give a folder of their own.
#pragma once

#include <cstdint>
#include <string>

#include "core/base/expected.h"
#include "core/targets/browser_app.h"

namespace zorvane {

struct DevToolsPort {
  int32_t browserPid = 0;
  uint16_t port = 0;
  // True when the port was given on the command line; false when it was read from
  // DevToolsActivePort, which a browser that has since quit may have left behind.
  bool fromCommandLine = false;
};

[[nodiscard]] Expected<DevToolsPort> findDevToolsPort(int32_t pid, BrowserApp app,
                                                      const std::string& procRoot = "/proc");

// The sentence for a browser that can't be scripted for want of a debugging port.
std::string noDebuggingPortText(BrowserApp app);

}  // namespace zorvane
