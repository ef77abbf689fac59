// DesktopModule: the half of this program that draws and drives the desktop (Qt, X11,
// AT-SPI, D-Bus, the views) is a module kept beside the executable, loaded when it is
// first needed. The tool server is started by agents again and again and most of its
// calls touch no window; linked into the executable, the desktop's forty-odd shared
// libraries were mapped and relocated before main() on every start, five times the
// time the server needs to answer `initialize`. So the executable links the core alone;
// the application and the tool server's first window tool load the module.
//
// The module carries its own copy of the core, with its own globals: what crosses the
// boundary is plain C++ through the interfaces of platform/ and the command line, never
// a piece of the core's state.
#pragma once

#include <memory>
#include <string>

#include "core/base/expected.h"

namespace zorvane {

class Desktop;

// What the module offers, under the C name `zorvane_desktop_module`.
struct DesktopModuleEntry {
  // Both halves are built together; a module of another build is refused.
  static constexpr int kVersion = 1;
  int version;
  // The X11 desktop of $DISPLAY, or the headless one when it can't be opened; the
  // caller owns it.
  Desktop* (*openDesktop)();
  // The desktop application from the process's arguments, to its end; never returns.
  void (*runApplication)(int argc, char** argv);
};

namespace DesktopModule {

// The module's file: "zorvane-desktop.so" beside this executable.
[[nodiscard]] std::string path();

// The module's entry, loaded on the first call (thread-safe); a failure says why.
[[nodiscard]] Expected<const DesktopModuleEntry*> entry();

// The desktop for the tool server's window tools: the module's, else (the module is
// missing or broken) the headless one, the reason logged.
[[nodiscard]] std::unique_ptr<Desktop> openDesktop();

}  // namespace DesktopModule

}  // namespace zorvane
