#include "core/agent/citations.h"

#include <gtest/gtest.h>

#include <unordered_set>

namespace zorvane {
namespace {

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

std::vector<std::string> labels(const ParsedCitations& parsed) {
  std::vector<std::string> result;
  for (const Citation& citation : parsed.citations) result.push_back(citation.label());
  return result;
}

struct Case {
  std::string text;
  std::string shown;
  std::vector<std::string> labels;
};

// What the reader sees: markers become numbers, the same source keeps its number, and a
// marker that never closes stays as it was written.
TEST(Citations, NumbersSourcesInTheOrderTheyAreFirstCited) {
  const std::vector<Case> cases = {
      {"", "", {}},
      {"No sources here.", "No sources here.", {}},
      {"Due 3 May [[cite: invoice.pdf | page 2]].", "Due 3 May [1].", {"invoice.pdf page 2"}},
      {"See [[cite: invoice.pdf | page 2", "See [[cite: invoice.pdf | page 2", {}},
      {"See [[cite: a.pdf] and more", "See [[cite: a.pdf] and more", {}},
      {"A [[cite:a.pdf|p1]] B [[cite: a.pdf | p1 ]]", "A [1] B [1]", {"a.pdf p1"}},
      {"[[cite:a|1]][[cite:a|2]][[cite:a|1]][[cite:b|1]]", "[1][2][1][3]", {"a 1", "a 2", "b 1"}},
      {"Notes [[cite: notes.md]] say so.", "Notes [1] say so.", {"notes.md"}},
      {"x[[cite:]]y", "x[1]y", {""}},
      {"[[cite:\ta.pdf\t|\tp. 1\t]]", "[1]", {"a.pdf p. 1"}},
      {"[[cite: sheet.csv | row 4 | col B]]", "[1]", {"sheet.csv row 4 | col B"}},
      {"]] comes first [[cite: a]]", "]] comes first [1]", {"a"}},
      {"[[cite: a [[cite: b]] c", "[1] c", {"a [[cite: b"}},
      {"[[cite: a]] then [[cite: b", "[1] then [[cite: b", {"a"}},
      {"[[CITE: a]] is not a marker", "[[CITE: a]] is not a marker", {}},
      {"Straße [[cite: Übersicht.pdf | S. 3]] ✓", "Straße [1] ✓", {"Übersicht.pdf S. 3"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    ParsedCitations parsed = parseCitations(c.text);
    EXPECT_EQ(shown(parsed), c.shown);
    EXPECT_EQ(labels(parsed), c.labels);
  }
}

// The parts of a marker: split at the first "|" only, trimmed of blanks and tabs; an
// empty part before the bar isn't counted, so the text after it is the file.
TEST(Citations, SplitsFileAndLocatorAtTheFirstBar) {
  struct Split {
    std::string marker;
    Citation citation;
  };
  const std::vector<Split> cases = {
      {"[[cite: a.pdf | p. 2]]", {"a.pdf", "p. 2"}},
      {"[[cite: a.pdf]]", {"a.pdf", ""}},
      {"[[cite: a.pdf |]]", {"a.pdf", ""}},
      {"[[cite: a.pdf | ]]", {"a.pdf", ""}},
      {"[[cite:|p. 2]]", {"p. 2", ""}},
      {"[[cite: | p. 2]]", {"", "p. 2"}},
      {"[[cite:||]]", {"", ""}},
      {"[[cite:a||b]]", {"a", "|b"}},
      {"[[cite:]]", {"", ""}},
  };
  for (const Split& c : cases) {
    SCOPED_TRACE(c.marker);
    ParsedCitations parsed = parseCitations(c.marker);
    ASSERT_EQ(parsed.citations.size(), 1u);
    EXPECT_EQ(parsed.citations[0], c.citation);
  }
  EXPECT_EQ((Citation{"a.pdf", ""}).label(), "a.pdf") << "no trailing blank without a locator";
  EXPECT_EQ((Citation{"a.pdf", "p. 2"}).label(), "a.pdf p. 2");
}

// The segments themselves: text only where there is text, a marker alone gives one
// reference, and repeated sources share an index.
TEST(Citations, SegmentsHoldOnlyTheTextThereIs) {
  ParsedCitations alone = parseCitations("[[cite: a.pdf | p. 1]]");
  EXPECT_EQ(alone.segments, std::vector<Segment>{Segment::cite(0)});

  ParsedCitations twice = parseCitations("One[[cite: a | 1]][[cite: a | 1]]two");
  EXPECT_EQ(twice.segments, (std::vector<Segment>{Segment::text("One"), Segment::cite(0),
                                                  Segment::cite(0), Segment::text("two")}));
  EXPECT_EQ(twice.citations.size(), 1u);

  std::unordered_set<Citation> set{{"a", "1"}, {"a", "1"}, {"a", ""}, {"", "a"}};
  EXPECT_EQ(set.size(), 3u) << "citations hash and compare by both fields";
}

// Invalid UTF-8 passes through untouched around and inside markers.
TEST(Citations, PassesInvalidBytesThrough) {
  ParsedCitations parsed = parseCitations("\xff[[cite: \xfe | p\xc3]]\xc3");
  EXPECT_EQ(parsed.segments,
            (std::vector<Segment>{Segment::text("\xff"), Segment::cite(0), Segment::text("\xc3")}));
  EXPECT_EQ(parsed.citations[0], (Citation{"\xfe", "p\xc3"}));
}

// Megabytes of answer come apart correctly whatever they hold: an unclosed marker
// repeated over and over, a hundred thousand distinct sources, or one source cited a
// hundred thousand times. (Speed is measured in bench/markdown_bench.)
TEST(Citations, ParsesPathologicalMegabytes) {
  std::string unclosed;
  while (unclosed.size() < 4'000'000) unclosed += "[[cite: a ";
  std::string distinct, repeated;
  for (int i = 0; i < 100'000; ++i) {
    distinct += "word [[cite: file" + std::to_string(i) + ".md | line " + std::to_string(i) + "]] ";
    repeated += "word [[cite: file.md | line 1]] ";
  }

  ParsedCitations none = parseCitations(unclosed);
  ParsedCitations many = parseCitations(distinct);
  ParsedCitations one = parseCitations(repeated);

  EXPECT_EQ(none.segments.size(), 1u);
  EXPECT_TRUE(none.citations.empty());
  EXPECT_EQ(many.citations.size(), 100'000u);
  EXPECT_EQ(many.citations[99'999].label(), "file99999.md line 99999");
  EXPECT_EQ(one.citations.size(), 1u);
  EXPECT_EQ(one.segments.size(), 200'001u) << "text, marker, ..., marker, the last blank";
}

}  // namespace
}  // namespace zorvane
