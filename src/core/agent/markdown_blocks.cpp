#include "core/agent/markdown_blocks.h"

#include <optional>

#include "core/base/json_value.h"

namespace zorvane {

namespace {

// The lines of a text split at line feeds, one at a time, with a look at the next one.
// A text of n line feeds has n + 1 lines; the empty text has one empty line. Each line
// is found once, even when it was looked at before it became the current one.
class LineReader {
 public:
  explicit LineReader(std::string_view text) : text_(text) { current_ = lineAt(0); }

  [[nodiscard]] bool atEnd() const { return atEnd_; }
  // The current line without its line feed and without a carriage return before it.
  [[nodiscard]] std::string_view line() const { return current_.text; }
  void advance() {
    if (current_.next == std::string_view::npos) {
      atEnd_ = true;
      return;
    }
    current_ = peeked_ ? *peeked_ : lineAt(current_.next);
    peeked_.reset();
  }
  // The line after the current one, if there is one.
  [[nodiscard]] std::optional<std::string_view> peek() {
    if (atEnd_ || current_.next == std::string_view::npos) return std::nullopt;
    if (!peeked_) peeked_ = lineAt(current_.next);
    return peeked_->text;
  }

 private:
  struct Line {
    std::string_view text;
    size_t next;  // where the following line starts; npos for none
  };

  [[nodiscard]] Line lineAt(size_t start) const {
    size_t feed = text_.find('\n', start);
    size_t end = feed == std::string_view::npos ? text_.size() : feed;
    std::string_view line = text_.substr(start, end - start);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    return {line, feed == std::string_view::npos ? std::string_view::npos : feed + 1};
  }

  std::string_view text_;
  Line current_;
  std::optional<Line> peeked_;
  bool atEnd_ = false;
};

}  // namespace

static bool isBlank(char c) {
  return c == ' ' || c == '\t';
}

// Plain loops rather than find_first_not_of: lines are short, and a library call per
// character would cost more than the parse itself.
static std::string_view trimBlanks(std::string_view text) {
  size_t start = 0, end = text.size();
  while (start < end && isBlank(text[start])) ++start;
  while (end > start && isBlank(text[end - 1])) --end;
  return text.substr(start, end - start);
}

static bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

// Whether a line starting with `first` may be anything but paragraph text: a fence, a
// rule, a heading, a table, a list item (the bullet "•" starts with byte E2) or a quote.
static bool mayBeginBlock(char first) {
  switch (first) {
    case '`':
    case '-':
    case '*':
    case '_':
    case '#':
    case '|':
    case '>':
    case '\xE2':
      return true;
    default:
      return isDigit(first);
  }
}

static bool isFence(std::string_view trimmedLine) {
  return trimmedLine.starts_with("```");
}

static bool isRule(std::string_view trimmedLine) {
  return trimmedLine == "---" || trimmedLine == "***" || trimmedLine == "___";
}

// The level of a heading line ("## Plan" is 2), or absent: at most six "#", then a blank.
static std::optional<int> headingLevel(std::string_view trimmedLine) {
  size_t count = 0;
  while (count < trimmedLine.size() && trimmedLine[count] == '#') ++count;
  if (count == 0 || count > 6 || count == trimmedLine.size() || trimmedLine[count] != ' ')
    return std::nullopt;
  return static_cast<int>(count);
}

// A table's separator line such as "|---|:-:|": at least one "-", and nothing but "|",
// "-", ":" and blanks.
static bool isSeparator(std::string_view line) {
  bool hasDash = false;
  for (char c : trimBlanks(line)) {
    if (c == '-') {
      hasDash = true;
    } else if (c != '|' && c != ':' && c != ' ') {
      return false;
    }
  }
  return hasDash;
}

// The cells of a table line: one outer "|" on each side dropped, split at every "|",
// each cell trimmed. A line of only "|" is one empty cell.
static std::vector<std::string> cells(std::string_view line) {
  std::string_view rest = trimBlanks(line);
  if (rest.starts_with('|')) rest.remove_prefix(1);
  if (rest.ends_with('|')) rest.remove_suffix(1);
  std::vector<std::string> result;
  while (true) {
    size_t bar = rest.find('|');
    result.emplace_back(trimBlanks(rest.substr(0, bar)));
    if (bar == std::string_view::npos) break;
    rest.remove_prefix(bar + 1);
  }
  return result;
}

// The text of a bullet item ("- x", "* x" or "• x"), or absent.
static std::optional<std::string_view> bulletText(std::string_view trimmedLine) {
  static constexpr std::string_view kMarkers[] = {"- ", "* ", "\xE2\x80\xA2 "};
  for (std::string_view marker : kMarkers) {
    if (trimmedLine.starts_with(marker)) return trimmedLine.substr(marker.size());
  }
  return std::nullopt;
}

// The text of a numbered item ("12. x"), or absent: digits, a dot and a blank.
static std::optional<std::string_view> numberedText(std::string_view trimmedLine) {
  size_t digits = 0;
  while (digits < trimmedLine.size() && isDigit(trimmedLine[digits])) ++digits;
  if (digits == 0 || !trimmedLine.substr(digits).starts_with(". ")) return std::nullopt;
  return trimmedLine.substr(digits + 2);
}

using ItemText = std::optional<std::string_view> (*)(std::string_view);

// A list that starts at the reader's line, which `itemText` accepts. Following lines are
// new items, or continue the last one when indented by two blanks; an empty line or
// anything else ends the list and stays for the caller.
static std::vector<std::string> readList(LineReader& lines, ItemText itemText) {
  std::vector<std::string> items{std::string(*itemText(trimBlanks(lines.line())))};
  for (lines.advance(); !lines.atEnd(); lines.advance()) {
    std::string_view raw = lines.line();
    std::string_view trimmedLine = trimBlanks(raw);
    if (auto text = itemText(trimmedLine)) {
      items.emplace_back(*text);
      continue;
    }
    if (trimmedLine.empty() || !raw.starts_with("  ")) break;
    items.back().append(" ").append(trimmedLine);
  }
  return items;
}

std::vector<MDBlock> MarkdownBlocks::parse(std::string_view text) {
  std::vector<MDBlock> blocks;
  std::string paragraph;
  bool hasParagraph = false;
  auto appendToParagraph = [&](std::string_view line) {
    if (hasParagraph) paragraph.push_back('\n');
    paragraph.append(line);
    hasParagraph = true;
  };
  auto flush = [&] {
    if (!hasParagraph) return;
    blocks.push_back(MDBlock::paragraph(std::move(paragraph)));
    paragraph.clear();
    hasParagraph = false;
  };

  LineReader lines(text);
  while (!lines.atEnd()) {
    std::string_view trimmedLine = trimBlanks(lines.line());

    if (trimmedLine.empty()) {
      flush();
      lines.advance();
      continue;
    }
    // Most lines of an answer are prose; only these first characters can begin a block.
    if (!mayBeginBlock(trimmedLine.front())) {
      appendToParagraph(trimmedLine);
      lines.advance();
      continue;
    }

    if (isFence(trimmedLine)) {
      flush();
      std::string code;
      bool first = true;
      for (lines.advance(); !lines.atEnd(); lines.advance()) {
        if (isFence(trimBlanks(lines.line()))) break;
        if (!first) code.push_back('\n');
        code.append(lines.line());
        first = false;
      }
      blocks.push_back(MDBlock::code(std::move(code)));
      lines.advance();  // past the closing fence; at the end already if there was none
      continue;
    }
    if (isRule(trimmedLine)) {
      flush();
      blocks.push_back(MDBlock::rule());
      lines.advance();
      continue;
    }
    if (auto level = headingLevel(trimmedLine)) {
      flush();
      blocks.push_back(
          MDBlock::heading(*level, std::string(trimBlanks(trimmedLine.substr(*level)))));
      lines.advance();
      continue;
    }
    if (trimmedLine.starts_with('|')) {
      if (auto next = lines.peek(); next && isSeparator(*next)) {
        flush();
        std::vector<std::string> header = cells(trimmedLine);
        std::vector<std::vector<std::string>> rows;
        lines.advance();  // the separator
        for (lines.advance(); !lines.atEnd(); lines.advance()) {
          std::string_view row = trimBlanks(lines.line());
          if (!row.starts_with('|')) break;
          rows.push_back(cells(row));
        }
        blocks.push_back(MDBlock::table(std::move(header), std::move(rows)));
        continue;
      }
    }
    if (bulletText(trimmedLine)) {
      flush();
      blocks.push_back(MDBlock::bullets(readList(lines, bulletText)));
      continue;
    }
    if (numberedText(trimmedLine)) {
      flush();
      blocks.push_back(MDBlock::numbered(readList(lines, numberedText)));
      continue;
    }
    if (trimmedLine.starts_with('>')) {
      flush();
      std::string quote(trimBlanks(trimmedLine.substr(1)));
      for (lines.advance(); !lines.atEnd(); lines.advance()) {
        std::string_view next = trimBlanks(lines.line());
        if (!next.starts_with('>')) break;
        quote.append(" ").append(trimBlanks(next.substr(1)));
      }
      blocks.push_back(MDBlock::quote(std::move(quote)));
      continue;
    }
    appendToParagraph(trimmedLine);
    lines.advance();
  }
  flush();
  return blocks;
}

static std::string quoted(const std::string& text) {
  return encodeCompact(JSONValue(text));
}

static std::string quotedList(const std::vector<std::string>& texts) {
  std::string out = "[";
  for (size_t i = 0; i < texts.size(); ++i) out += (i == 0 ? "" : ", ") + quoted(texts[i]);
  return out + "]";
}

std::string MDBlock::description() const {
  if (auto heading = as<Heading>())
    return "heading(" + std::to_string(heading->level) + ", " + quoted(heading->text) + ")";
  if (auto paragraph = as<Paragraph>()) return "paragraph(" + quoted(paragraph->text) + ")";
  if (auto bullets = as<Bullets>()) return "bullets(" + quotedList(bullets->items) + ")";
  if (auto numbered = as<Numbered>()) return "numbered(" + quotedList(numbered->items) + ")";
  if (auto table = as<Table>()) {
    std::string rows = "[";
    for (size_t i = 0; i < table->rows.size(); ++i)
      rows += (i == 0 ? "" : ", ") + quotedList(table->rows[i]);
    return "table(" + quotedList(table->header) + ", " + rows + "])";
  }
  if (auto code = as<Code>()) return "code(" + quoted(code->text) + ")";
  if (auto quote = as<Quote>()) return "quote(" + quoted(quote->text) + ")";
  return "rule";
}

}  // namespace zorvane
