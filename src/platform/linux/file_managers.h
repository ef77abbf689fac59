// FileManagers: the file managers as the Linux platform code meets them: which known one
// a process is, and how one's folder view reads in the accessibility tree.
//
// Which file managers are known (by their identifiers and executables), how deep their
// items lie and how their windows are titled is the FileManagerApp table
// (core/targets/file_manager_app.h), since the engine's hit classification and the
// drop and restore logic ask it too; what only the platform code needs is here, and the
// AT-SPI elements (AtspiElement::url and ::folder), the accessibility applications
// (AtspiApp) and the session bus's file manager (FileManagerBus) ask it.
//
// In a file manager's window an item of the folder view answers `url()` with the file
// it shows: the window's folder plus the item's name, when that file exists (a
// launcher's own name or an escaped name is no file's name). The rules hold for every
// file manager of the table; each toolkit's view shows its items its own way:
//   - a table cell named after the file inside a row's cell (GTK 3 details view:
//     Thunar), or inside a grid cell (GTK 4 grid: Nautilus);
//   - the row's cell itself, through its named child;
//   - an icon whose text (not its name) is the file's name (GTK 2 icon view: PCManFM);
//   - a named child of the desktop window (PCManFM's desktop), whose folder is the
//     user's desktop folder.
// A window's folder is the absolute path in its location bar, the first text field below
// the window (one Collection query) that holds one; every view keeps it, even while the
// bar is hidden (GTK 4 keeps it at 0x0). The desktop window has none.
//
// On the AT-SPI thread, like the elements themselves.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "core/targets/file_manager_app.h"

namespace zorvane {

class AtspiElement;

namespace FileManagers {

// The known file manager that process `pid` runs, by its executable (/proc/<pid>/exe);
// null for any other program and for a process that is gone.
[[nodiscard]] const FileManagerApp* ofProcess(int32_t pid);

// The file URL of the item `element` is in a file manager's folder view; nothing for
// any other element. `element` belongs to a file manager's application.
[[nodiscard]] std::optional<std::string> itemURL(AtspiElement& element);

// The folder the window holding `element` (or `element`, a window) shows: an absolute
// path without a trailing "/"; nothing when the window shows none. `element` belongs to a
// file manager's application.
[[nodiscard]] std::optional<std::string> folderShown(AtspiElement& element);

}  // namespace FileManagers
}  // namespace zorvane
