#include "core/agent/markdown_blocks.h"

#include <gtest/gtest.h>


namespace zorvane {

void PrintTo(const MDBlock& block, std::ostream* out) {
  *out << block.description();
}

namespace {

using Blocks = std::vector<MDBlock>;

struct Case {
  std::string text;
  Blocks blocks;
};

void expectBlocks(const std::vector<Case>& cases) {
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(MarkdownBlocks::parse(c.text), c.blocks);
  }
}

// Paragraphs: trimmed lines joined by line feeds, ended by an empty line or any other
// block; an empty text has no blocks; any bytes are text.
TEST(MarkdownBlocks, ParagraphsKeepTheirLines) {
  expectBlocks({
      {"", {}},
      {"\n\n  \n\t\n", {}},
      {"Hello", {MDBlock::paragraph("Hello")}},
      {"  one  \n\ttwo\n", {MDBlock::paragraph("one\ntwo")}},
      {"one\n\ntwo", {MDBlock::paragraph("one"), MDBlock::paragraph("two")}},
      {"one\r\ntwo\r\n\r\nthree", {MDBlock::paragraph("one\ntwo"), MDBlock::paragraph("three")}},
      {"**Bold** and `code` stay", {MDBlock::paragraph("**Bold** and `code` stay")}},
      {"\xff\xfe\n\r", {MDBlock::paragraph("\xff\xfe")}},
      {std::string("a\0b", 3), {MDBlock::paragraph(std::string("a\0b", 3))}},
      {"text\n# Title\nmore",
       {MDBlock::paragraph("text"), MDBlock::heading(1, "Title"), MDBlock::paragraph("more")}},
  });
}

// Headings: one to six "#" and a blank; anything else with "#" is paragraph text.
TEST(MarkdownBlocks, HeadingsNeedABlankAndAtMostSixMarks) {
  expectBlocks({
      {"# One", {MDBlock::heading(1, "One")}},
      {"  ###   Three  ", {MDBlock::heading(3, "Three")}},
      {"###### Six", {MDBlock::heading(6, "Six")}},
      {"####### Seven", {MDBlock::paragraph("####### Seven")}},
      {"#hashtag", {MDBlock::paragraph("#hashtag")}},
      {"#", {MDBlock::paragraph("#")}},
      {"## Two #", {MDBlock::heading(2, "Two #")}},
      {"#\tTab", {MDBlock::paragraph("#\tTab")}},
  });
}

// Rules are exactly three marks; code fences take their lines unchanged up to the next
// fence, or to the end when the fence is never closed.
TEST(MarkdownBlocks, RulesAndCodeFences) {
  expectBlocks({
      {"---", {MDBlock::rule()}},
      {"  ***  \n___", {MDBlock::rule(), MDBlock::rule()}},
      {"----", {MDBlock::paragraph("----")}},
      {"a\n---\nb", {MDBlock::paragraph("a"), MDBlock::rule(), MDBlock::paragraph("b")}},
      {"```swift\n  let x = 1\n\n# not a heading\n```\nafter",
       {MDBlock::code("  let x = 1\n\n# not a heading"), MDBlock::paragraph("after")}},
      {"text\n```\ncode", {MDBlock::paragraph("text"), MDBlock::code("code")}},
      {"```\nnever closed\n- not a list\n", {MDBlock::code("never closed\n- not a list\n")}},
      {"```", {MDBlock::code("")}},
      {"```\n  ```  \nx", {MDBlock::code(""), MDBlock::paragraph("x")}},
      {"```\r\nline\r\n```", {MDBlock::code("line")}},
  });
}

// Tables need a separator line right under the header; rows are every following line
// that starts with "|", kept at their own width.
TEST(MarkdownBlocks, TablesNeedASeparator) {
  expectBlocks({
      {"| Name | Qty |\n|---|:-:|\n| Pens | 3 |\n| Ink |\nafter",
       {MDBlock::table({"Name", "Qty"}, {{"Pens", "3"}, {"Ink"}}), MDBlock::paragraph("after")}},
      {"| a | b |\n| c | d |", {MDBlock::paragraph("| a | b |\n| c | d |")}},
      {"| a |\n|:::|", {MDBlock::paragraph("| a |\n|:::|")}},
      {"| a |\n| -x- |", {MDBlock::paragraph("| a |\n| -x- |")}},
      {"|", {MDBlock::paragraph("|")}},
      {"|\n-", {MDBlock::table({""}, {})}},
      {"a | b\n---|---", {MDBlock::paragraph("a | b\n---|---")}},
      {"| x |\n|-|\n|\n||\n| 1 | 2 | 3 |", {MDBlock::table({"x"}, {{""}, {""}, {"1", "2", "3"}})}},
      {"| a || b |\n|-|", {MDBlock::table({"a", "", "b"}, {})}},
  });
}

// Lists: bullets and numbers, items continued by lines indented two blanks, ended by an
// empty line or any other line. The numbers aren't kept.
TEST(MarkdownBlocks, ListsAndTheirContinuations) {
  expectBlocks({
      {"- one\n* two\n• three", {MDBlock::bullets({"one", "two", "three"})}},
      {"- one\n  more of one\n- two", {MDBlock::bullets({"one more of one", "two"})}},
      {"- one\n - indented item", {MDBlock::bullets({"one", "indented item"})}},
      {"- one\n\n- two", {MDBlock::bullets({"one"}), MDBlock::bullets({"two"})}},
      {"- one\nplain", {MDBlock::bullets({"one"}), MDBlock::paragraph("plain")}},
      {"- one\n continued?", {MDBlock::bullets({"one"}), MDBlock::paragraph("continued?")}},
      {"-nospace", {MDBlock::paragraph("-nospace")}},
      {"1. first\n2. second\n10. tenth", {MDBlock::numbered({"first", "second", "tenth"})}},
      {"3. only\n   more", {MDBlock::numbered({"only more"})}},
      {"1. a\n- b", {MDBlock::numbered({"a"}), MDBlock::bullets({"b"})}},
      {"1. a\n  - b", {MDBlock::numbered({"a - b"})}},
      {"3.14 is pi", {MDBlock::paragraph("3.14 is pi")}},
      {"1.5 million", {MDBlock::paragraph("1.5 million")}},
      {"2020. A year", {MDBlock::numbered({"A year"})}},
      {"1.\n.5 x", {MDBlock::paragraph("1.\n.5 x")}},
      {"text\n- item", {MDBlock::paragraph("text"), MDBlock::bullets({"item"})}},
      {"- \xE2\x80\xA2 nested marker", {MDBlock::bullets({"\xE2\x80\xA2 nested marker"})}},
  });
}

// Quotes: consecutive ">" lines joined with one blank.
TEST(MarkdownBlocks, QuotesJoinTheirLines) {
  expectBlocks({
      {"> one\n>two\n  >  three", {MDBlock::quote("one two three")}},
      {">", {MDBlock::quote("")}},
      {"> a\nb", {MDBlock::quote("a"), MDBlock::paragraph("b")}},
      {"> a\n> # b", {MDBlock::quote("a # b")}},
  });
}

// A whole answer as an agent writes it, with every kind of block in order.
TEST(MarkdownBlocks, ParsesAWholeAnswer) {
  const std::string answer =
      "## Summary\n"
      "The invoice is **due on 3 May** [[cite: invoice.pdf | p. 2]].\n"
      "It came from ACME.\n"
      "\n"
      "| Item | Amount |\n"
      "|------|-------:|\n"
      "| Pens | 12.00 |\n"
      "\n"
      "- Pay by transfer\n"
      "  to the usual account\n"
      "- Keep the receipt\n"
      "1. Open the bank app\n"
      "2. Pay\n"
      "> Late fees apply\n"
      "> after 30 days.\n"
      "---\n"
      "```sh\n"
      "echo done\n"
      "```\n";
  EXPECT_EQ(
      MarkdownBlocks::parse(answer),
      (Blocks{
          MDBlock::heading(2, "Summary"),
          MDBlock::paragraph(
              "The invoice is **due on 3 May** [[cite: invoice.pdf | p. 2]].\nIt came from ACME."),
          MDBlock::table({"Item", "Amount"}, {{"Pens", "12.00"}}),
          MDBlock::bullets({"Pay by transfer to the usual account", "Keep the receipt"}),
          MDBlock::numbered({"Open the bank app", "Pay"}),
          MDBlock::quote("Late fees apply after 30 days."),
          MDBlock::rule(),
          MDBlock::code("echo done"),
      }));
}

// Megabytes of pathological text come out right: one line of "#", an unclosed fence, a
// table of a hundred thousand rows, "|" lines with separators, deep lists, quotes.
// (Speed is measured in bench/markdown_bench.)
TEST(MarkdownBlocks, ParsesPathologicalMegabytes) {
  const size_t size = 2'000'000;
  std::string hashes(size, '#');
  std::string fence = "```\n" + std::string(size, 'x');
  std::string table = "| a | b |\n|---|---|\n";
  std::string bars, bullets, quotes, newlines(size, '\n'), digits(size, '7');
  while (table.size() < size) table += "| 1 | 2 |\n";
  while (bars.size() < size) bars += "|\n-\n\n";
  while (bullets.size() < size) bullets += "- item\n  more\n";
  while (quotes.size() < size) quotes += "> quoted\n";

  Blocks fromHashes = MarkdownBlocks::parse(hashes);
  Blocks fromFence = MarkdownBlocks::parse(fence);
  Blocks fromTable = MarkdownBlocks::parse(table);
  Blocks fromBars = MarkdownBlocks::parse(bars);
  Blocks fromBullets = MarkdownBlocks::parse(bullets);
  Blocks fromQuotes = MarkdownBlocks::parse(quotes);
  Blocks fromNewlines = MarkdownBlocks::parse(newlines);
  Blocks fromDigits = MarkdownBlocks::parse(digits + ". x");

  EXPECT_EQ(fromHashes, Blocks{MDBlock::paragraph(hashes)});
  EXPECT_EQ(fromFence, Blocks{MDBlock::code(std::string(size, 'x'))});
  ASSERT_EQ(fromTable.size(), 1u);
  EXPECT_EQ(fromTable[0].as<MDBlock::Table>()->rows.size(), (table.size() - 20) / 10);
  EXPECT_EQ(fromBars.size(), bars.size() / 5);
  ASSERT_EQ(fromBullets.size(), 1u);
  EXPECT_EQ(fromBullets[0].as<MDBlock::Bullets>()->items.back(), "item more");
  ASSERT_EQ(fromQuotes.size(), 1u);
  EXPECT_TRUE(fromNewlines.empty());
  EXPECT_EQ(fromDigits, Blocks{MDBlock::numbered({"x"})});
}

}  // namespace
}  // namespace zorvane
