// Paths: where Zorvane keeps its files, on the XDG places of a Linux desktop.
//
//   data     ${XDG_DATA_HOME:-~/.local/share}/zorvane       (stores, sessions, socket)
//   state    ${XDG_STATE_HOME:-~/.local/state}/zorvane      (the log file)
//   config   ${XDG_CONFIG_HOME:-~/.config}/zorvane          (settings.json)
//
// Every function reads the environment when called, so tests that point HOME and the
// XDG variables at a temporary folder never touch the real home. A relative XDG value
// is ignored, as the XDG rules say.
#pragma once

#include <string>

namespace zorvane::Paths {

std::string home();               // $HOME, else the password database, else "/"
std::string dataDirectory();      // .../zorvane
std::string stateDirectory();     // .../zorvane
std::string configDirectory();    // .../zorvane
std::string logFile();            // state/zorvane.log
std::string settingsFile();       // config/settings.json
std::string scratchDirectory();   // data/scratch
std::string sessionsDirectory();  // data/sessions
std::string claudeSkillsDirectory();  // ~/.claude/skills
std::string phoneDirectory();         // ~/.zorvane/phone
std::string temporaryDirectory();     // $TMPDIR if absolute, else "/tmp"

// The shell that runs commands for the user: $SHELL when it names an executable
// file, else "/bin/sh". Run with "-c" for a command and "-lc" for a login shell.
std::string userShell();

// The absolute path of this running executable (empty if it can't be found).
std::string executablePath();

}  // namespace zorvane::Paths
