// Selftest: one whole agent turn on a target, headless, reported line by line through
// `Say`, for checking an installation and the engine from a terminal or a test.
//
// Exit codes: 0 when the turn reached an outcome (answer or failure alike), 1 when it
// couldn't start (no agent, no target, a start failure), 2 on the 180-second time-out.
#pragma once

#include "app/shell/command_line.h"

namespace zorvane {

// Runs the selftest mode to its end; never returns.
[[noreturn]] void runSelftest(const CommandLine& commandLine);

// Flushes the log and standard output and ends the process at once.
[[noreturn]] void exitProcess(int code);

}  // namespace zorvane
