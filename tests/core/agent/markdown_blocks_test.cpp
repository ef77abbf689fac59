#include "core/agent/markdown_blocks.h"

#include <gtest/gtest.h>

namespace zorvane {

void PrintTo(const MDBlock& block, std::ostream* out) {
  *out << block.description();
}

namespace {

using Blocks = std::vector<MDBlock>;

// Paragraphs are trimmed lines joined by line feeds, ended by an empty line or any other
// block; inline markup and any bytes are kept. Headings need one to six "#" and a blank.
// Rules are exactly three marks. Code fences keep their lines unchanged up to the next
// fence or the end. Tables need a separator line under a header that starts with "|".
// List items continue on lines indented two blanks; their numbers aren't kept. Quote
// lines are joined with one blank.
TEST(MarkdownBlocks, ParsesEveryKindOfBlock) {
  using B = MDBlock;
  const std::vector<std::pair<std::string, Blocks>> cases = {
      {"", {}},
      {"\n\n  \n\t\n", {}},
      {"  one  \n\ttwo\r\n\r\nthree", {B::paragraph("one\ntwo"), B::paragraph("three")}},
      {"**Bold** [[cite: a | 1]]", {B::paragraph("**Bold** [[cite: a | 1]]")}},
      {"\xff\xfe\n\r", {B::paragraph("\xff\xfe")}},
      {"text\n# Title\nmore", {B::paragraph("text"), B::heading(1, "Title"), B::paragraph("more")}},
      {"  ###   Three  ", {B::heading(3, "Three")}},
      {"###### Six", {B::heading(6, "Six")}},
      {"## Two #", {B::heading(2, "Two #")}},
      {"####### Seven", {B::paragraph("####### Seven")}},
      {"#hashtag\n#\n#\tTab", {B::paragraph("#hashtag\n#\n#\tTab")}},
      {"  ***  \n___", {B::rule(), B::rule()}},
      {"----", {B::paragraph("----")}},
      {"a\n---\nb", {B::paragraph("a"), B::rule(), B::paragraph("b")}},
      {"```swift\n  let x = 1\n\n# not a heading\n```\nafter",
       {B::code("  let x = 1\n\n# not a heading"), B::paragraph("after")}},
      {"```\nnever closed\n- not a list\n", {B::code("never closed\n- not a list\n")}},
      {"```", {B::code("")}},
      {"```\r\nline\r\n  ```  \nx", {B::code("line"), B::paragraph("x")}},
      {"| Name | Qty |\n|---|:-:|\n| Pens | 3 |\n| Ink |\nafter",
       {B::table({"Name", "Qty"}, {{"Pens", "3"}, {"Ink"}}), B::paragraph("after")}},
      {"| a | b |\n| c | d |", {B::paragraph("| a | b |\n| c | d |")}},
      {"| a |\n| -x- |", {B::paragraph("| a |\n| -x- |")}},
      {"a | b\n---|---", {B::paragraph("a | b\n---|---")}},
      {"|\n-", {B::table({""}, {})}},
      {"| x |\n|-|\n|\n||\n| 1 | 2 | 3 |", {B::table({"x"}, {{""}, {""}, {"1", "2", "3"}})}},
      {"- one\n* two\n• three", {B::bullets({"one", "two", "three"})}},
      {"- one\n  more of one\n - two", {B::bullets({"one more of one", "two"})}},
      {"- one\n\n- two", {B::bullets({"one"}), B::bullets({"two"})}},
      {"- one\n continued?", {B::bullets({"one"}), B::paragraph("continued?")}},
      {"-nospace", {B::paragraph("-nospace")}},
      {"text\n- item", {B::paragraph("text"), B::bullets({"item"})}},
      {"1. first\n2. second\n10. tenth", {B::numbered({"first", "second", "tenth"})}},
      {"1. a\n- b", {B::numbered({"a"}), B::bullets({"b"})}},
      {"2020. A year", {B::numbered({"A year"})}},
      {"3.14 is pi", {B::paragraph("3.14 is pi")}},
      {"> one\n>two\n  >  three", {B::quote("one two three")}},
      {">", {B::quote("")}},
      {"> a\nb", {B::quote("a"), B::paragraph("b")}},
  };
  for (const auto& [text, blocks] : cases) {
    SCOPED_TRACE(text);
    EXPECT_EQ(MarkdownBlocks::parse(text), blocks);
  }
}

// Megabytes of pathological text come out right: one line of "#", an unclosed fence, a
// table of a hundred thousand rows, "|" lines with separators, deep lists, quotes, and a
// number far too long for any integer. (Speed is measured in bench/markdown_bench.)
TEST(MarkdownBlocks, ParsesPathologicalMegabytes) {
  const size_t size = 2'000'000;
  std::string hashes(size, '#'), code(size, 'x'), digits(size, '7');
  std::string table = "| a | b |\n|---|---|\n", bars, bullets, quotes;
  while (table.size() < size) table += "| 1 | 2 |\n";
  while (bars.size() < size) bars += "|\n-\n\n";
  while (bullets.size() < size) bullets += "- item\n  more\n";
  while (quotes.size() < size) quotes += "> quoted\n";

  EXPECT_EQ(MarkdownBlocks::parse(hashes), Blocks{MDBlock::paragraph(hashes)});
  EXPECT_EQ(MarkdownBlocks::parse("```\n" + code), Blocks{MDBlock::code(code)});
  EXPECT_EQ(MarkdownBlocks::parse(digits + ". x"), Blocks{MDBlock::numbered({"x"})});
  Blocks fromTable = MarkdownBlocks::parse(table);
  ASSERT_EQ(fromTable.size(), 1u);
  EXPECT_EQ(fromTable[0].as<MDBlock::Table>()->rows.size(), (table.size() - 20) / 10);
  EXPECT_EQ(MarkdownBlocks::parse(bars).size(), bars.size() / 5);
  Blocks fromBullets = MarkdownBlocks::parse(bullets);
  ASSERT_EQ(fromBullets.size(), 1u);
  EXPECT_EQ(fromBullets[0].as<MDBlock::Bullets>()->items.back(), "item more");
  EXPECT_EQ(MarkdownBlocks::parse(quotes).size(), 1u);
}

}  // namespace
}  // namespace zorvane
