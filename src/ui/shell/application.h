// The desktop application: `zorvane` with no run-mode argument. Opens the X11 desktop,
// refuses a second instance (the peer socket already answers), builds the Qt
// application and AppDelegate, and runs until the user quits, the status menu's Quit,
// SIGTERM, SIGINT or SIGHUP; the live pieces are saved on every one of these roads.
#pragma once

#include "app/shell/command_line.h"

namespace zorvane {

[[noreturn]] void runApplication(const CommandLine& commandLine);

}  // namespace zorvane
