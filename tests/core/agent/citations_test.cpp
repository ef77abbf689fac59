#include "core/agent/citations.h"

#include <gtest/gtest.h>

namespace zorvane {
namespace {

using Sources = std::vector<std::pair<std::string, std::string>>;  // file, locator

// The answer as the bubble shows it: text as it is, each reference as its number in
// brackets, counting from 1.
std::string shown(const ParsedCitations& parsed) {
  std::string text;
  for (const Segment& segment : parsed.segments) {
    if (auto plain = segment.as<Segment::Text>()) text += plain->text;
    if (auto cite = segment.as<Segment::Cite>())
      text += "[" + std::to_string(cite->index + 1) + "]";
  }
  return text;
}

// Markers become numbers in the order sources are first cited, the same source keeps its
// number, and a marker that never closes stays as it was written. A marker splits at the
// first "|" only, trimmed of blanks and tabs; an empty part before the bar isn't counted,
// so the text after it is the file. Any bytes pass through untouched.
TEST(Citations, NumbersSourcesAndSplitsFileFromLocator) {
  struct Case {
    std::string text, shown;
    Sources sources;
  };
  const std::vector<Case> cases = {
      {"", "", {}},
      {"See [[cite: invoice.pdf | page 2", "See [[cite: invoice.pdf | page 2", {}},
      {"A [[cite:a.pdf|p1]] B [[cite: a.pdf | p1 ]]", "A [1] B [1]", {{"a.pdf", "p1"}}},
      {"[[cite:a|1]][[cite:a|2]][[cite:a|1]]", "[1][2][1]", {{"a", "1"}, {"a", "2"}}},
      {"[[cite: a [[cite: b]] c", "[1] c", {{"a [[cite: b", ""}}},
      {"[[cite: a]] then [[cite: b", "[1] then [[cite: b", {{"a", ""}}},
      {"[[CITE: a]] is not a marker", "[[CITE: a]] is not a marker", {}},
      {"[[cite:\ta.pdf\t|\tp. 1\t]]", "[1]", {{"a.pdf", "p. 1"}}},
      {"[[cite: a.pdf |]]", "[1]", {{"a.pdf", ""}}},
      {"[[cite:|p. 2]]", "[1]", {{"p. 2", ""}}},
      {"[[cite: | p. 2]]", "[1]", {{"", "p. 2"}}},
      {"[[cite: sheet.csv | row 4 | col B]]", "[1]", {{"sheet.csv", "row 4 | col B"}}},
      {"x[[cite:]]y", "x[1]y", {{"", ""}}},
      {"\xff[[cite: \xfe | p\xc3]]\xc3", "\xff[1]\xc3", {{"\xfe", "p\xc3"}}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    ParsedCitations parsed = parseCitations(c.text);
    EXPECT_EQ(shown(parsed), c.shown);
    Sources sources;
    for (const Citation& citation : parsed.citations)
      sources.emplace_back(citation.file, citation.locator);
    EXPECT_EQ(sources, c.sources);
  }
}

// Segments hold only the text there is; a label is the file, then the locator if any.
TEST(Citations, SegmentsAndLabels) {
  EXPECT_EQ(parseCitations("[[cite: a.pdf | p. 1]]").segments,
            std::vector<Segment>{Segment::cite(0)});
  EXPECT_EQ(parseCitations("One[[cite: a | 1]][[cite: a | 1]]two").segments,
            (std::vector<Segment>{Segment::text("One"), Segment::cite(0), Segment::cite(0),
                                  Segment::text("two")}));
  EXPECT_EQ((Citation{"a.pdf", ""}).label(), "a.pdf") << "no trailing blank without a locator";
  EXPECT_EQ((Citation{"a.pdf", "p. 2"}).label(), "a.pdf p. 2");
}

// Megabytes of answer come apart correctly: an unclosed marker repeated over and over, a
// hundred thousand distinct sources, or one source cited a hundred thousand times.
TEST(Citations, ParsesPathologicalMegabytes) {
  std::string unclosed, distinct, repeated;
  while (unclosed.size() < 4'000'000) unclosed += "[[cite: a ";
  for (int i = 0; i < 100'000; ++i) {
    distinct += "word [[cite: file" + std::to_string(i) + ".md | line " + std::to_string(i) + "]] ";
    repeated += "word [[cite: file.md | line 1]] ";
  }
  ParsedCitations none = parseCitations(unclosed);
  ParsedCitations many = parseCitations(distinct);
  ParsedCitations one = parseCitations(repeated);
  EXPECT_EQ(none.segments.size(), 1u);
  EXPECT_TRUE(none.citations.empty());
  ASSERT_EQ(many.citations.size(), 100'000u);
  EXPECT_EQ(many.citations[99'999].label(), "file99999.md line 99999");
  EXPECT_EQ(one.citations.size(), 1u);
  EXPECT_EQ(one.segments.size(), 200'001u) << "text, marker, ..., marker, the last blank";
}

}  // namespace
}  // namespace zorvane
