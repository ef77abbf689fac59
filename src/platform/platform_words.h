// The words the system says about the computer it runs on, where the plain words of a
// text would be false on this desktop ("this Mac", "AppleScript", "Finder"). Texts for
// the user and the agent take the words from here; the table in platform_words.cpp keeps
// each beside the macOS word it stands for, so the two forms stay side by side.
//
// The words the engine's own texts use are declared in core/base/engine_words.h, since
// core uses nothing of platform; the same table gives them. platform_words.cpp is a
// library of its own (zorvane_platform_words) that needs no desktop, so every program
// that links the engine links it too.
#pragma once

#include <string_view>

#include "core/base/engine_words.h"

namespace zorvane::PlatformWords {

extern const std::string_view appleScriptMissing;
extern const std::string_view accessibilityMissing;
extern const std::string_view screenshotFailed;
extern const std::string_view fileManager;
extern const std::string_view onDeviceModel;
extern const std::string_view gooBody;
extern const std::string_view voiceKey;
extern const std::string_view permissionsIntro;
extern const std::string_view restartNeeded;
extern const std::string_view otherDesktop;
extern const std::string_view accessibilityName;

}  // namespace zorvane::PlatformWords
