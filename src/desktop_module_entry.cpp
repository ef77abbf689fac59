// The module's one exported name: the entry the executable looks up (see
// app/shell/desktop_module.h).
#include <csignal>

#include "app/shell/command_line.h"
#include "app/shell/desktop_module.h"
#include "core/goo/ink_tokens.h"
#include "platform/desktop.h"
#include "ui/shell/application.h"

namespace {

zorvane::Desktop* openDesktop() { return zorvane::Desktop::open().release(); }

void runApplication(int argc, char** argv) {
  using namespace zorvane;
  // This copy of the core has globals of its own: set them as main() set the other's.
  signal(SIGPIPE, SIG_IGN);
  CommandLine commandLine(argc, argv);
  Ink::Timing::setSlowMotion(Ink::Timing::parseSlowMotion(commandLine.arguments()));
  zorvane::runApplication(commandLine);
}

}  // namespace

extern "C" __attribute__((visibility("default"))) const zorvane::DesktopModuleEntry* zorvane_desktop_module() {
  static const zorvane::DesktopModuleEntry entry{zorvane::DesktopModuleEntry::kVersion, openDesktop, runApplication};
  return &entry;
}
