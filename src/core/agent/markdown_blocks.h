// MarkdownBlocks: an agent's answer as a short list of typed blocks for the bubble and the
// hub to draw: headings, paragraphs, bullet and numbered lists, tables, code, quotes and
// rules. Only this small, line-based part of Markdown is understood; inline marks
// (**bold**, `code`, links) stay in the text for the view to style.
//
//   std::vector<MDBlock> blocks = MarkdownBlocks::parse("## Plan\n- read\n- write\n");
//   // heading(2, "Plan"), bullets(["read", "write"])
//
// Rules, tried in this order on each line with its blanks and tabs trimmed:
//   ```           a code fence: the lines up to the next fence (or the end) as they are
//   (empty)       ends the paragraph
//   --- *** ___   a rule
//   #..###### x   a heading; seven "#" or none followed by a blank is paragraph text
//   | a | b |     a table, when the next line is a separator such as |---|:-:|
//   - x, * x, • x bullets; a line indented by two blanks continues the last item
//   1. x          a numbered list, continued the same way; the numbers aren't kept
//   > x           a quote, its lines joined with one blank
//   anything else joins the paragraph, whose lines are kept apart by line feeds
// A construct that never completes (a fence never closed, a table without a separator)
// degrades to what it would otherwise be: code to the end, or paragraph text.
//
// Lines are split at line feeds; a carriage return before the line feed is dropped, so
// text with Windows line ends parses the same. Everything is pure and total: any bytes
// give blocks, in time linear in the length of the text. Block texts are slices of the
// input, so invalid UTF-8 passes through unchanged.
#pragma once

#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace zorvane {

struct MDBlock {
  struct Heading {
    int level = 1;  // 1 to 6
    std::string text;
    friend bool operator==(const Heading&, const Heading&) = default;
  };
  struct Paragraph {
    std::string text;
    friend bool operator==(const Paragraph&, const Paragraph&) = default;
  };
  struct Bullets {
    std::vector<std::string> items;
    friend bool operator==(const Bullets&, const Bullets&) = default;
  };
  struct Numbered {
    std::vector<std::string> items;
    friend bool operator==(const Numbered&, const Numbered&) = default;
  };
  struct Table {
    std::vector<std::string> header;
    std::vector<std::vector<std::string>> rows;  // not padded or cut to the header's width
    friend bool operator==(const Table&, const Table&) = default;
  };
  struct Code {
    std::string text;
    friend bool operator==(const Code&, const Code&) = default;
  };
  struct Quote {
    std::string text;
    friend bool operator==(const Quote&, const Quote&) = default;
  };
  struct Rule {
    friend bool operator==(const Rule&, const Rule&) = default;
  };
  using Value = std::variant<Heading, Paragraph, Bullets, Numbered, Table, Code, Quote, Rule>;

  Value value;

  static MDBlock heading(int level, std::string text) { return {Heading{level, std::move(text)}}; }
  static MDBlock paragraph(std::string text) { return {Paragraph{std::move(text)}}; }
  static MDBlock bullets(std::vector<std::string> items) { return {Bullets{std::move(items)}}; }
  static MDBlock numbered(std::vector<std::string> items) { return {Numbered{std::move(items)}}; }
  static MDBlock table(std::vector<std::string> header,
                       std::vector<std::vector<std::string>> rows) {
    return {Table{std::move(header), std::move(rows)}};
  }
  static MDBlock code(std::string text) { return {Code{std::move(text)}}; }
  static MDBlock quote(std::string text) { return {Quote{std::move(text)}}; }
  static MDBlock rule() { return {Rule{}}; }

  template <typename T>
  [[nodiscard]] const T* as() const {
    return std::get_if<T>(&value);
  }

  // A one-line diagnostic form for logs and test failures, e.g. heading(2, "Plan") or
  // bullets(["a", "b"]). Nothing parses it.
  [[nodiscard]] std::string description() const;

  friend bool operator==(const MDBlock&, const MDBlock&) = default;
};

namespace MarkdownBlocks {

// The blocks of `text`, in order (see the file comment). An empty text gives none.
[[nodiscard]] std::vector<MDBlock> parse(std::string_view text);

}  // namespace MarkdownBlocks

}  // namespace zorvane
