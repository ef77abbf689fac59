// The table of the platform's words, each below the macOS word it stands for. See
// platform_words.h.
#include "platform/platform_words.h"

namespace zorvane::PlatformWords {

// "this Mac"
const std::string_view thisComputer = "this computer";
// "/bin/zsh -c": the user's own shell, as Paths::userShell() finds it.
const std::string_view commandShell = "the user's shell (-c)";
// "open": the desktop's opener for files and addresses.
const std::string_view openCommand = "xdg-open";
// "the notch": the goo's place at the top centre of the screen.
const std::string_view gooHome = "the top of the screen";
// "Terminal": where the user types a command ("Open Terminal, run ...").
const std::string_view terminal = "a terminal";
// "the notch → Settings": where the settings are found.
const std::string_view settingsPlace = "Zorvane's panel at the top of the screen → Settings";
// What run_applescript says on a desktop without AppleScript.
const std::string_view appleScriptMissing =
    "AppleScript isn't available on this Linux desktop. Use run_command for shell commands "
    "(xdg-open, gio, dbus-send, xdotool where installed), the click/type tools for apps, and "
    "browser_eval for web pages.";

// "Zorvane lacks Accessibility permission.": the accessibility bus is what's missing here.
const std::string_view accessibilityMissing =
    "Zorvane can't reach the accessibility bus (AT-SPI). Make sure at-spi2-core is installed and "
    "accessibility is enabled in this desktop session.";
// "Is Screen Recording granted to Zorvane": capture needs the X display, no permission.
const std::string_view screenshotFailed =
    "Screenshot failed. Is the window on screen, and can Zorvane reach the X display?";
// "Finder": the program that shows folders ("the current folder in Finder").
const std::string_view fileManager = "your file manager";
// "Apple's on-device model": what stands in for it here.
const std::string_view onDeviceModel = "a local model";
// "the notch" as something to touch ("Hold the notch", "Tap the notch").
const std::string_view gooBody = "the goo at the top of the screen";
// "⌥ Space": the voice shortcut.
const std::string_view voiceKey = "Alt+Space";
// "macOS asks you to allow these once.": nothing asks on this desktop; the user sets
// them up.
const std::string_view permissionsIntro = "Your desktop needs to allow these once.";
// "macOS needs Zorvane to restart for this one."
const std::string_view restartNeeded = "Zorvane needs to restart for this one.";
// "on another Space"
const std::string_view otherDesktop = "on another workspace";
// "through Accessibility"
const std::string_view accessibilityName = "the accessibility bus";

}  // namespace zorvane::PlatformWords
