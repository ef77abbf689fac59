// FileManagerApp: the file managers Zorvane knows, in one table: how each is recognised
// (its bundle identifiers as the window service reports them, the names of its
// executable as a process shows them) and what differs between them where a file or a
// folder is looked for.
//
// The drop and restore logic asks for "the file manager" wherever it means the program
// that shows folders and their items (a hit on its window means its folder; an item in
// its view means a file). Which one runs is the desktop's choice; any entry here can be
// it.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zorvane {

enum class FileManagerKind { finder, thunar, nautilus, pcmanfm };

struct FileManagerApp {
  FileManagerKind kind;
  std::string_view name;
  // The identifiers its windows carry (the first is the one it is known by).
  std::vector<std::string_view> bundleIDs;
  // The file names its executable has, for a process found by pid.
  std::vector<std::string_view> executables;
  // How deep below the application an item of a folder view may lie in the
  // accessibility tree; a walk for an item stops there. The GTK 3 and GTK 2 views put
  // the item cells at depth 12 to 13; GTK 4 (Nautilus) wraps each view in more
  // containers and puts them at 18, so its bound is higher.
  int itemSearchDepth;
  // What follows the folder's name in a window's title ("sub - Thunar"); empty when
  // the title is the name alone.
  std::string_view titleSuffix;

  // Whether a window of this file manager titled `title` may show a folder named
  // `name`: the name alone, or the name followed by the file manager's suffix.
  [[nodiscard]] bool titleMayShow(std::string_view title, std::string_view folderName) const;
};

// Every known file manager, the Finder first.
[[nodiscard]] const std::vector<FileManagerApp>& fileManagerApps();

// The entry with this bundle identifier; null when it is no file manager's.
[[nodiscard]] const FileManagerApp* fileManagerForBundleID(std::string_view bundleID);

// The entry whose executable has this file name ("thunar", "/usr/bin/thunar" both
// match); null when none does.
[[nodiscard]] const FileManagerApp* fileManagerForExecutable(std::string_view executable);

[[nodiscard]] const FileManagerApp& fileManagerApp(FileManagerKind kind);

}  // namespace zorvane
