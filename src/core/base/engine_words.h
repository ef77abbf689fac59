// The words of the desktop that the engine's own texts name (the tool descriptions, the
// agent's instructions, friendly errors, schedule notes): "this computer" where the
// plain text would say "this Mac", and so on.
//
// Declared here, given elsewhere: the words belong to the platform, whose one table
// (platform/platform_words.cpp) keeps each beside the macOS word it stands for. The
// engine uses nothing of platform, so it only names them here; the table is linked into
// every program that links the engine (the zorvane_platform_words library, which needs
// nothing but the standard library, and no display).
#pragma once

#include <string_view>

namespace zorvane::PlatformWords {

extern const std::string_view thisComputer;
extern const std::string_view commandShell;
extern const std::string_view openCommand;
extern const std::string_view gooHome;
extern const std::string_view terminal;
extern const std::string_view settingsPlace;

}  // namespace zorvane::PlatformWords
