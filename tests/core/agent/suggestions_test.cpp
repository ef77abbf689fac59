#include "core/agent/suggestions.h"

#include <gtest/gtest.h>

namespace zorvane {
namespace {

using Three = std::array<std::string_view, 3>;

// A new piece offers three first prompts that fit its target; a PDF is known by its
// extension in any case.
TEST(Suggestions, FitTheKindOfTarget) {
  const Three pdf = {"Summarize this", "What are the key terms?", "Find dates and amounts"};
  const Three file = {"Summarize this", "Explain this", "Find problems"};
  const std::vector<std::pair<Target, Three>> cases = {
      {Target::folder(URL::fileURL("/home/u/Photos", true)),
       {"What's in here?", "Rename files by date", "Find duplicates"}},
      {Target::file(URL::fileURL("/home/u/a.pdf")), pdf},
      {Target::file(URL::fileURL("/home/u/Scan 2.PDF")), pdf},
      {Target::file(URL::fileURL("/home/u/.pdf")), file},
      {Target::file(URL::fileURL("/home/u/a.pdfx")), file},
      {Target::browserTab(BrowserApp::chrome, 4, *URL::parse("https://example.com"), "Example"),
       {"Summarize this page", "Extract the table", "What should I reply?"}},
      {Target::window(42, 7, "org.gnome.TextEditor", "Text Editor", "notes"),
       {"What am I looking at?", "Do the next step for me", "Find what needs fixing here"}},
  };
  for (const auto& [target, expected] : cases) {
    SCOPED_TRACE(target.targetKey());
    EXPECT_EQ(suggestions(target), expected);
  }
}

}  // namespace
}  // namespace zorvane
