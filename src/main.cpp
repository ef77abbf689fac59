// The process entry: reads the arguments once and enters one run mode, never to return.
#include <csignal>
#include <cstdio>

#include "app/shell/command_line.h"
#include "app/control/control_server.h"
#include "app/shell/desktop_module.h"
#include "app/shell/discover.h"
#include "app/shell/selftest.h"
#include "core/goo/ink_tokens.h"

using namespace zorvane;

int main(int argc, char** argv) {
  // A pipe or socket whose reader went away (an agent that quit, a peer that gave up)
  // is a failed write to handle, never a reason for this process to die.
  signal(SIGPIPE, SIG_IGN);
  CommandLine commandLine(argc, argv);
  // `--slow <factor>` slows every animation down, for watching one closely.
  Ink::Timing::setSlowMotion(Ink::Timing::parseSlowMotion(commandLine.arguments()));
  switch (commandLine.mode()) {
    case RunMode::selftest:
      runSelftest(commandLine);
    case RunMode::toolServer:
      ControlServer::run(commandLine);
    case RunMode::cloudTest:
      fprintf(stderr, "zorvane: the cloud routine check (--cloud-test) is not part of this build yet\n");
      exitProcess(69);
    case RunMode::discover:
      runDiscover();
    case RunMode::application: {
      // The desktop half of the program: loaded here, so that the other modes never map it.
      auto module = DesktopModule::entry();
      if (!module) {
        fprintf(stderr, "zorvane: %s\n", module.error().c_str());
        exitProcess(1);
      }
      (*module)->runApplication(argc, argv);
      exitProcess(0);
    }
  }
  return 0;
}
