// ShellWordReader: reads one shell word at a time, for parseShellWords (shell_words.h).
//
// A word is read as bash and zsh read it: quotes removed, backslash escapes resolved,
// $'...' decoded, and every expansion ($x, ${...}, $(...), `...`, $((...)), <(...))
// kept as written and flagged on the word (see ShellWord). Command substitutions are
// also noted on the script being built, with where the first one stands.
//
// Private to src/core/agent: shell_words.cpp derives its script reader from this class
// and reads the structure between the words (operators, redirections, compound
// commands, here-documents) itself. Nested constructs are skipped on an explicit stack,
// so deep nesting costs no native stack; every read moves forward or fails.
#pragma once

#include <cstddef>
#include <string_view>

#include "core/agent/shell_words.h"

namespace zorvane::detail {

inline bool isShellBlank(char c) {
  return c == ' ' || c == '\t';
}
inline bool isShellDigit(char c) {
  return c >= '0' && c <= '9';
}
inline bool isShellNameStart(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}
inline bool isShellNameChar(char c) {
  return isShellNameStart(c) || isShellDigit(c);
}
// The characters that end a word and begin an operator or redirection.
inline bool isShellOperatorChar(char c) {
  return c == ';' || c == '&' || c == '|' || c == '<' || c == '>' || c == '(' || c == ')';
}

class ShellWordReader {
 protected:
  explicit ShellWordReader(std::string_view text) : text_(text) {}

  // What an open construct inside a word waits for.
  enum class Nest { paren, brace, bracket, doubleQuote, backtick };

  // Where a skipped construct ends, and whether a command substitution was inside it.
  struct Skipped {
    size_t end = 0;
    bool hasSubstitution = false;
  };

  [[nodiscard]] bool failed() const { return script_.error.has_value(); }
  // Records the first failure, with its byte offset; later ones are dropped.
  void fail(std::string_view what, size_t at);
  [[nodiscard]] char peek(size_t ahead) const {
    return pos_ + ahead < text_.size() ? text_[pos_ + ahead] : '\0';
  }
  void noteSubstitution(size_t begin, size_t end);

  // Reads one word at pos_ and leaves pos_ behind it. With `definesFunction` given (the
  // word opens a command), a name glued to "()" is returned alone and *definesFunction
  // set, pos_ behind the ")".
  ShellWord readWord(bool* definesFunction);

  // The end of a construct whose body starts at `from`, just behind its opening,
  // honouring quotes, escapes and nested constructs. Fails and gives the end of the
  // text if it is never closed.
  Skipped skipNested(size_t from, Nest outer);

  std::string_view text_;
  size_t pos_ = 0;
  ShellScript script_;
  // Inside [[ ]], "<", ">" and parentheses compare and group: they are word text.
  bool inConditional_ = false;

 private:
  struct WordBuilder;

  void readPlain(WordBuilder& b, char c, bool atStart);
  void readGluedParen(WordBuilder& b, bool* definesFunction);
  void readDoubleQuoted(WordBuilder& b);
  void readDollar(WordBuilder& b, bool inDoubleQuotes);
  void appendExpansion(WordBuilder& b, size_t end, bool holdsSubstitution, bool splits);
  void readSubstitution(WordBuilder& b, size_t bodyStart, Nest nest, bool splits);
  void readAnsiCString(WordBuilder& b);
};

}  // namespace zorvane::detail
