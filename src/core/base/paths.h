// Paths: where Zorvane keeps its files, on the XDG places of a Linux desktop.
//
//   data     ${XDG_DATA_HOME:-~/.local/share}/zorvane       (stores, sessions, socket)
//   state    ${XDG_STATE_HOME:-~/.local/state}/zorvane      (the log file)
//   config   ${XDG_CONFIG_HOME:-~/.config}/zorvane          (settings.json)
//
// Every function reads the environment when called, so tests that point HOME and the
// XDG variables at a temporary folder never touch the real home. A relative XDG value
// is ignored, as the XDG rules say.
//
// The data, state and config folders are Zorvane's own: they hold every piece's scope
// file, the agents' MCP configurations, the peer socket, the stores and the log. They
// are private to the user (folders 0700, files 0600, see file_io.h), and the tool server
// never lets an agent write in them or run a command there, but for the scratch folder,
// where the agents bonded to a window work.
#pragma once

#include <string>
#include <vector>

namespace zorvane::Paths {

std::string home();               // $HOME, else the password database, else "/"
std::string dataDirectory();      // .../zorvane
std::string stateDirectory();     // .../zorvane
std::string configDirectory();    // .../zorvane
// The three above, in that order.
std::vector<std::string> ownDirectories();
// The own folder that holds `path`, as written (links are not followed, "//" counts as
// "/"): one of ownDirectories() when `path` is that folder or below it, else empty.
std::string ownDirectoryHolding(const std::string& path);
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

// The absolute folders of $PATH, in order (relative entries are left out).
std::vector<std::string> searchPath();

// Whether `path` is a regular file this process may execute.
bool isExecutableFile(const std::string& path);

// The absolute path of this running executable (empty if it can't be found).
std::string executablePath();

}  // namespace zorvane::Paths
