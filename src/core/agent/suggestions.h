// The first prompts a new piece offers for its target, as three tappable texts: what
// people most often ask of a folder, a PDF, another file, a web page or an app window.
//
//   suggestions(Target::folder(url));  // "What's in here?", "Rename files by date", ...
#pragma once

#include <array>
#include <string_view>

#include "core/targets/target.h"

namespace zorvane {

// Three suggestions by the kind of target; a file whose extension is "pdf" in any case
// gets the PDF ones.
[[nodiscard]] std::array<std::string_view, 3> suggestions(const Target& target);

}  // namespace zorvane
