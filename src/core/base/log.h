// Log: the program's log file, one line a message: an ISO 8601 time, a blank, the text.
//
// `Log::info` never blocks on the disk: it hands the line to a writer thread, which
// appends it to Paths::logFile() (its folder created on first use, 0700; the file 0600,
// and tightened to that if it was looser). Lines keep the order in which `info` was
// called. A failed write is dropped: logging never fails the caller. `flush()` waits
// until every line handed over so far is on disk; call it before a deliberate process
// exit.
#pragma once

#include <string>
#include <string_view>

namespace zorvane::Log {

void info(std::string_view text);

// Blocks until all earlier lines are written.
void flush();

// Sends later lines to another file (tests); an empty path returns to the default.
void setFile(const std::string& path);

}  // namespace zorvane::Log
