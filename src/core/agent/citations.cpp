#include "core/agent/citations.h"

#include <unordered_map>

namespace zorvane {

static constexpr std::string_view kOpening = "[[cite:";
static constexpr std::string_view kClosing = "]]";

static std::string_view trimBlanks(std::string_view text) {
  size_t start = text.find_first_not_of(" \t");
  if (start == std::string_view::npos) return {};
  size_t end = text.find_last_not_of(" \t");
  return text.substr(start, end - start + 1);
}

std::string Citation::label() const {
  if (locator.empty()) return file;
  return file + " " + locator;
}

// The inside of a marker, split at its first "|" into at most two parts. Empty parts
// aren't counted: "|p. 2" has the one part "p. 2", which is then the file.
static Citation citationFromInside(std::string_view inside) {
  size_t start = inside.find_first_not_of('|');
  if (start == std::string_view::npos) return {};
  size_t bar = inside.find('|', start);
  if (bar == std::string_view::npos) return {std::string(trimBlanks(inside.substr(start))), ""};
  return {std::string(trimBlanks(inside.substr(start, bar - start))),
          std::string(trimBlanks(inside.substr(bar + 1)))};
}

ParsedCitations parseCitations(std::string_view text) {
  ParsedCitations parsed;
  // The number of each citation so far, so a long answer with many sources stays linear.
  std::unordered_map<Citation, size_t> numbers;
  size_t rest = 0;
  while (rest < text.size()) {
    size_t opening = text.find(kOpening, rest);
    if (opening == std::string_view::npos) break;
    size_t inside = opening + kOpening.size();
    size_t closing = text.find(kClosing, inside);
    // No closing marker anywhere behind: neither this nor any later opening can close.
    if (closing == std::string_view::npos) break;

    if (opening > rest)
      parsed.segments.push_back(Segment::text(std::string(text.substr(rest, opening - rest))));
    Citation citation = citationFromInside(text.substr(inside, closing - inside));
    auto [found, isNew] = numbers.try_emplace(citation, parsed.citations.size());
    if (isNew) parsed.citations.push_back(std::move(citation));
    parsed.segments.push_back(Segment::cite(found->second));
    rest = closing + kClosing.size();
  }
  if (rest < text.size()) parsed.segments.push_back(Segment::text(std::string(text.substr(rest))));
  return parsed;
}

}  // namespace zorvane

size_t std::hash<zorvane::Citation>::operator()(const zorvane::Citation& citation) const noexcept {
  size_t first = std::hash<std::string>()(citation.file);
  size_t second = std::hash<std::string>()(citation.locator);
  return first ^ (second + 0x9e3779b97f4a7c15ULL + (first << 6) + (first >> 2));
}
