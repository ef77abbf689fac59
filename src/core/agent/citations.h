// Citations: the inline source markers of an agent's answer, taken out of the text and
// numbered, so the bubble can show "[1]" chips beside the words they back.
//
// The system prompt asks agents to cite with markers of the form
//
//   The invoice is due on 3 May [[cite: invoice.pdf | page 2]].
//
// `parseCitations` cuts such text into `Segment`s, plain text and references into a list
// of distinct `Citation`s. The same file and locator cited twice keep one number. A marker
// that isn't complete ("[[cite:" without a later "]]") is plain text, marker included.
//
//   ParsedCitations parsed = parseCitations("Due 3 May [[cite: a.pdf | p. 2]].");
//   // segments: text("Due 3 May "), cite(0), text(".")
//   // citations: {file "a.pdf", locator "p. 2"}, label "a.pdf p. 2"
//
// The function is pure and total: any bytes give a result, in time linear in the length of
// the text. Segments are slices of the input, so invalid UTF-8 passes through unchanged
// (text from an agent has already been repaired when it was read).
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace zorvane {

struct Citation {
  std::string file;
  std::string locator;  // may be empty

  // `file` alone when there is no locator, else `file`, one blank and `locator`.
  [[nodiscard]] std::string label() const;

  friend bool operator==(const Citation&, const Citation&) = default;
};

// One piece of an answer: text to show as it is, or a reference to a citation.
struct Segment {
  struct Text {
    std::string text;
    friend bool operator==(const Text&, const Text&) = default;
  };
  struct Cite {
    size_t index;  // a position in ParsedCitations::citations
    friend bool operator==(const Cite&, const Cite&) = default;
  };
  using Value = std::variant<Text, Cite>;

  Value value;

  static Segment text(std::string text) { return {Text{std::move(text)}}; }
  static Segment cite(size_t index) { return {Cite{index}}; }

  template <typename T>
  [[nodiscard]] const T* as() const {
    return std::get_if<T>(&value);
  }
  friend bool operator==(const Segment&, const Segment&) = default;
};

struct ParsedCitations {
  std::vector<Segment> segments;
  std::vector<Citation> citations;  // in order of first mention
};

// Splits an answer into text and citation segments (see the file comment).
[[nodiscard]] ParsedCitations parseCitations(std::string_view text);

}  // namespace zorvane

template <>
struct std::hash<zorvane::Citation> {
  size_t operator()(const zorvane::Citation& citation) const noexcept;
};
