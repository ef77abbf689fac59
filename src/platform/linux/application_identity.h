// ApplicationIdentity: the one table that turns what X11 and /proc tell about a window's
// process into the application's identifier and name, as callers elsewhere know them.
//
// The identifier, first match wins:
//   1. the browsers, by WM_CLASS res_class, get their fixed identifiers ("Chromium" ->
//      "org.chromium.Chromium", "Google-chrome" -> "com.google.Chrome", ...), so the
//      browser scripting recognises them;
//   2. the GTK application id (_GTK_APPLICATION_ID) where the toolkit sets one;
//   3. the id of the desktop entry (its file name without ".desktop") whose
//      StartupWMClass equals res_class, or whose id equals res_class or res_name (case
//      ignored);
//   4. res_class itself.
// The name: Name of the desktop entry for the identifier, else of the entry matched by
// WM_CLASS, else the executable's name (/proc/<pid>/exe, else /proc/<pid>/comm).
//
// Desktop entries are read from the "applications" folders of XDG_DATA_HOME and
// XDG_DATA_DIRS (in that order of precedence), once, on first need. Hidden entries are
// left out. Not thread-safe: each user (the window service, the launch watcher) keeps
// one of its own and asks it on one thread.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/window_service.h"

namespace zorvane {

// What a window says about the application behind it.
struct WindowIdentity {
  std::string resName, resClass;  // WM_CLASS
  std::string gtkApplicationID;   // "" when not set
};

class ApplicationIdentity {
 public:
  // `dataDirs`: folders holding "applications/", the most important first.
  explicit ApplicationIdentity(std::vector<std::string> dataDirs);
  // The folders of this process's XDG_DATA_HOME and XDG_DATA_DIRS (with their defaults).
  static ApplicationIdentity fromEnvironment();

  // The application of a window of process `pid` (0 when unknown).
  ApplicationInfo identify(const WindowIdentity& window, int32_t pid);
  // For a process without a window: the desktop entry whose Exec names its executable;
  // nothing when none does.
  std::optional<ApplicationInfo> identifyProcess(int32_t pid);

  // The executable's file name of a process ("" when it is gone).
  static std::string executableName(int32_t pid);

 private:
  struct DesktopEntry {
    std::string id, name, startupWMClass, exec;  // exec: the command's file name
  };
  void loadEntries();
  const DesktopEntry* entryByID(const std::string& id);
  const DesktopEntry* entryForWindow(const WindowIdentity& window);

  std::vector<std::string> dataDirs_;
  bool loaded_ = false;
  std::map<std::string, DesktopEntry> entries_;  // by lower-cased id
};

}  // namespace zorvane
