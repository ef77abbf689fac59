// DesktopSettings: the desktop's own accessibility settings, for the alert that asks
// the user to switch the accessibility bus on. Each Linux desktop ships its own tool,
// or none; the first known one found on PATH is the one to open.
//
//   if (auto command = DesktopSettings::accessibilityCommand(Paths::searchPath(), isExecutable))
//     DesktopSettings::startDetached(*command);
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace zorvane::DesktopSettings {

// The full command line of the first tool of the known ones (GNOME, Xfce, MATE, KDE
// Plasma, Cinnamon) whose program `isExecutable` finds in one of `folders`; none when
// this desktop has none of them.
[[nodiscard]] std::optional<std::vector<std::string>> accessibilityCommand(
    const std::vector<std::string>& folders, const std::function<bool(const std::string& path)>& isExecutable);

// Starts `argv` (argv[0] a full path) in a session of its own that holds none of this
// process's descriptors; false when it couldn't be started.
bool startDetached(const std::vector<std::string>& argv);

}  // namespace zorvane::DesktopSettings
