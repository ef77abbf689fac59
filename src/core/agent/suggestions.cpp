#include "core/agent/suggestions.h"

#include <variant>

namespace zorvane {

static bool hasPDFExtension(const URL& url) {
  std::string name = url.lastPathComponent();
  size_t dot = name.rfind('.');
  if (dot == std::string::npos || dot == 0) return false;
  std::string_view extension = std::string_view(name).substr(dot + 1);
  if (extension.size() != 3) return false;
  for (size_t i = 0; i < 3; ++i) {
    char c = extension[i];
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    if (c != "pdf"[i]) return false;
  }
  return true;
}

std::array<std::string_view, 3> suggestions(const Target& target) {
  switch (target.kind()) {
    case Target::Kind::folder:
      return {"What's in here?", "Rename files by date", "Find duplicates"};
    case Target::Kind::file:
      if (hasPDFExtension(std::get<Target::File>(target.payload()).url)) {
        return {"Summarize this", "What are the key terms?", "Find dates and amounts"};
      }
      return {"Summarize this", "Explain this", "Find problems"};
    case Target::Kind::browserTab:
      return {"Summarize this page", "Extract the table", "What should I reply?"};
    case Target::Kind::window:
      return {"What am I looking at?", "Do the next step for me", "Find what needs fixing here"};
  }
  return {"Summarize this", "Explain this", "Find problems"};
}

}  // namespace zorvane
