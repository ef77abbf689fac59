// Inline text of an answer as Qt rich text: **strong**, *emphasis*, `code` and
// [links](https://…) become their tags, citation markers become their label in a
// smaller, dimmer type with a blank on either side, and everything else is escaped and
// keeps its white space. A mark that isn't closed stays as typed. `plainText` is the
// same text as a screen reader should say it.
//
//   inlineHtml("Due **3 May** [[cite: lease.pdf | p. 2]]", 13)
//     -> <span style="white-space:pre-wrap">Due <b>3 May</b> <span …> lease.pdf p. 2 </span></span>
#pragma once

#include <QString>

#include <string_view>

namespace zorvane {

[[nodiscard]] QString inlineHtml(std::string_view text, double size);
[[nodiscard]] QString plainText(std::string_view text);

}  // namespace zorvane
