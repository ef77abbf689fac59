#include "core/agent/detail/shell_word_reader.h"

#include <algorithm>
#include <cstdint>
#include <string>

#include "core/base/utf8.h"

namespace zorvane::detail {

static bool isHexDigit(char c) {
  return isShellDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}
static unsigned hexValue(char c) {
  if (isShellDigit(c)) return static_cast<unsigned>(c - '0');
  if (c >= 'a' && c <= 'f') return static_cast<unsigned>(c - 'a' + 10);
  return static_cast<unsigned>(c - 'A' + 10);
}

// "NAME=" or "NAME+=", the start of an assignment, so that a "(" behind it opens an array.
static bool isAssignmentStart(std::string_view text) {
  if (text.empty() || text.back() != '=' || !isShellNameStart(text.front())) return false;
  text.remove_suffix(1);
  if (!text.empty() && text.back() == '+') text.remove_suffix(1);
  return std::all_of(text.begin(), text.end(), isShellNameChar);
}

// A name a function can be defined under: "f", "my-tool", "ns::run".
static bool isFunctionName(std::string_view text) {
  if (text.empty()) return false;
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return isShellNameChar(c) || c == '-' || c == '.' || c == ':'; });
}

// The character an ANSI-C escape of one letter stands for ("n" for a line feed); NUL
// for the letters that are no such escape.
static char simpleEscape(char letter) {
  switch (letter) {
    case 'a':
      return '\a';
    case 'b':
      return '\b';
    case 'e':
    case 'E':
      return '\x1b';
    case 'f':
      return '\f';
    case 'n':
      return '\n';
    case 'r':
      return '\r';
    case 't':
      return '\t';
    case 'v':
      return '\v';
    case '\\':
    case '\'':
    case '"':
    case '?':
      return letter;
    default:
      return '\0';
  }
}

void ShellWordReader::fail(std::string_view what, size_t at) {
  if (!failed()) script_.error = std::string(what) + " at " + std::to_string(at);
}

void ShellWordReader::noteSubstitution(size_t begin, size_t end) {
  if (script_.hasCommandSubstitution) return;
  script_.hasCommandSubstitution = true;
  script_.substitutionBegin = begin;
  script_.substitutionEnd = end;
}

struct ShellWordReader::WordBuilder {
  ShellWord word;
  bool inexact = false;
  // Brace expansion: "{" ... "," or ".." ... "}", all unquoted.
  size_t braceStart = 0;
  int braceDepth = 0;
  bool braceSeparator = false;
  // A bracket pattern: an unquoted "[" with a later "]". A lone "[" is the test command.
  size_t bracketStart = 0;
  bool openBracket = false;

  // The word's text without its expansions.
  std::string skeleton;

  void append(std::string_view text) {
    word.text += text;
    skeleton += text;
  }
  void append(char c) {
    word.text += c;
    skeleton += c;
  }
  // The word stops being exact from `length` bytes on.
  void markInexactFrom(size_t length) {
    word.literalPrefix = inexact ? std::min(word.literalPrefix, length) : length;
    inexact = true;
  }
  void markInexact() { markInexactFrom(word.text.size()); }
};

ShellWord ShellWordReader::readWord(bool* definesFunction) {
  WordBuilder b;
  size_t start = pos_;
  while (pos_ < text_.size() && !failed()) {
    char c = text_[pos_];
    bool atStart = pos_ == start;
    if (c == '\0') {
      fail("NUL byte", pos_);
      break;
    }
    if (atStart && (c == '<' || c == '>' || c == '=') && peek(1) == '(') {
      readSubstitution(b, pos_ + 2, Nest::paren, true);
      continue;
    }
    // Inside [[ ]], "<", ">" and parentheses compare and group; they are word text.
    if (inConditional_ && (c == '<' || c == '>' || c == '(' || c == ')')) {
      b.append(c);
      ++pos_;
      continue;
    }
    if (c == '(' && !atStart) {
      readGluedParen(b, definesFunction);
      if (definesFunction && *definesFunction) break;
      continue;
    }
    if (isShellBlank(c) || c == '\n' || isShellOperatorChar(c)) break;
    switch (c) {
      case '\'': {
        size_t close = text_.find('\'', pos_ + 1);
        if (close == std::string_view::npos) {
          fail("unterminated single quote", pos_);
          break;
        }
        b.append(text_.substr(pos_ + 1, close - pos_ - 1));
        b.word.quoted = true;
        pos_ = close + 1;
        break;
      }
      case '"':
        ++pos_;
        readDoubleQuoted(b);
        break;
      case '\\':
        if (peek(1) == '\n') {
          pos_ += 2;
        } else if (pos_ + 1 < text_.size()) {
          b.append(text_[pos_ + 1]);
          b.word.quoted = true;
          pos_ += 2;
        } else {
          b.append('\\');
          ++pos_;
        }
        break;
      case '$':
        readDollar(b, false);
        break;
      case '`':
        readSubstitution(b, pos_ + 1, Nest::backtick, true);
        break;
      default:
        readPlain(b, c, atStart);
        break;
    }
  }
  if (!b.inexact) b.word.literalPrefix = b.word.text.size();
  b.word.holdsQuotedCode =
      b.skeleton.find("$(") != std::string::npos || b.skeleton.find('`') != std::string::npos;
  return std::move(b.word);
}

// An unquoted character that is not a quote, escape or expansion.
void ShellWordReader::readPlain(WordBuilder& b, char c, bool atStart) {
  ++pos_;
  size_t here = b.word.text.size();
  b.append(c);
  switch (c) {
    case '~':
      if (atStart) b.word.startsWithTilde = true;
      break;
    case '*':
    case '?':
      b.word.hasPattern = true;
      b.markInexactFrom(here);
      break;
    case '[':
      if (!b.openBracket) b.openBracket = true, b.bracketStart = here;
      break;
    case ']':
      if (!b.openBracket) break;
      b.openBracket = false;
      b.word.hasPattern = true;
      b.markInexactFrom(b.bracketStart);
      break;
    case '{':
      if (b.braceDepth++ == 0) b.braceStart = here, b.braceSeparator = false;
      break;
    case ',':
      if (b.braceDepth > 0) b.braceSeparator = true;
      break;
    case '.':
      if (b.braceDepth > 0 && peek(0) == '.') b.braceSeparator = true;
      break;
    case '}':
      if (b.braceDepth == 0 || --b.braceDepth > 0 || !b.braceSeparator) break;
      b.word.hasPattern = true;
      b.markInexactFrom(b.braceStart);
      break;
    default:
      break;
  }
}

// A "(" glued to the word read so far: an array after "NAME=", a function definition
// after a name at the start of a command, otherwise a glob group.
void ShellWordReader::readGluedParen(WordBuilder& b, bool* definesFunction) {
  if (!b.word.quoted && isAssignmentStart(b.word.text)) {
    Skipped skipped = skipNested(pos_ + 1, Nest::paren);
    if (failed()) return;
    if (skipped.hasSubstitution) {
      noteSubstitution(pos_, skipped.end);
      b.word.hasExpansion = b.word.hasSplittingExpansion = true;
      b.markInexact();
    }
    b.append(text_.substr(pos_, skipped.end - pos_));
    pos_ = skipped.end;
    return;
  }
  size_t after = pos_ + 1;
  while (after < text_.size() && isShellBlank(text_[after])) ++after;
  if (definesFunction && !b.word.quoted && isFunctionName(b.word.text) && after < text_.size() &&
      text_[after] == ')') {
    *definesFunction = true;
    pos_ = after + 1;
    return;
  }
  size_t open = pos_;
  Skipped skipped = skipNested(pos_ + 1, Nest::paren);
  if (failed()) return;
  if (skipped.hasSubstitution) noteSubstitution(open, skipped.end);
  b.markInexact();
  b.word.hasGlobGroup = true;
  b.append(text_.substr(open, skipped.end - open));
  pos_ = skipped.end;
}

void ShellWordReader::readDoubleQuoted(WordBuilder& b) {
  b.word.quoted = true;
  while (pos_ < text_.size()) {
    char c = text_[pos_];
    if (c == '\0') return fail("NUL byte", pos_);
    if (c == '"') {
      ++pos_;
      return;
    }
    if (c == '\\') {
      char next = peek(1);
      if (next == '\n') {
        pos_ += 2;
      } else if (next == '$' || next == '`' || next == '"' || next == '\\') {
        b.append(next);
        pos_ += 2;
      } else {
        b.append('\\');
        ++pos_;
      }
      continue;
    }
    if (c == '$' && peek(1) != '\'' && peek(1) != '"') {
      readDollar(b, true);
      if (failed()) return;
      continue;
    }
    if (c == '`') {
      readSubstitution(b, pos_ + 1, Nest::backtick, false);
      if (failed()) return;
      continue;
    }
    b.append(c);
    ++pos_;
  }
  fail("unterminated double quote", pos_);
}

// A "$" at pos_: an expansion, an ANSI-C or locale string, or a plain dollar sign.
void ShellWordReader::readDollar(WordBuilder& b, bool inDoubleQuotes) {
  char next = peek(1);
  if (!inDoubleQuotes && next == '\'') return readAnsiCString(b);
  if (!inDoubleQuotes && next == '"') {
    pos_ += 2;
    return readDoubleQuoted(b);
  }
  if (next == '(') {
    // "$((" is arithmetic only when its inner "(" closes right before the outer one;
    // "$( (x) )" and "$((x) )" are command substitutions holding a subshell.
    if (peek(2) == '(') {
      Skipped inner = skipNested(pos_ + 3, Nest::paren);
      if (failed()) return;
      if (inner.end < text_.size() && text_[inner.end] == ')') {
        return appendExpansion(b, inner.end + 1, inner.hasSubstitution, !inDoubleQuotes);
      }
    }
    return readSubstitution(b, pos_ + 2, Nest::paren, !inDoubleQuotes);
  }
  if (next == '[') {
    Skipped skipped = skipNested(pos_ + 2, Nest::bracket);
    if (failed()) return;
    return appendExpansion(b, skipped.end, skipped.hasSubstitution, !inDoubleQuotes);
  }
  size_t end = pos_ + 1;
  // zsh's $=name, $~name, $^name and $+name modifiers.
  if ((next == '=' || next == '~' || next == '^' || next == '+') &&
      (isShellNameStart(peek(2)) || peek(2) == '{')) {
    ++end;
  }
  char first = end < text_.size() ? text_[end] : '\0';
  if (first == '{') {
    Skipped skipped = skipNested(end + 1, Nest::brace);
    if (failed()) return;
    return appendExpansion(b, skipped.end, skipped.hasSubstitution, !inDoubleQuotes);
  }
  if (isShellNameStart(first)) {
    while (end < text_.size() && isShellNameChar(text_[end])) ++end;
    return appendExpansion(b, end, false, !inDoubleQuotes);
  }
  if (isShellDigit(first) ||
      (first != '\0' && std::string_view("@*#?-$!").find(first) != std::string_view::npos)) {
    return appendExpansion(b, end + 1, false, !inDoubleQuotes);
  }
  b.append('$');
  ++pos_;
}

// The expansion from pos_ to `end`, kept as written.
void ShellWordReader::appendExpansion(WordBuilder& b, size_t end, bool holdsSubstitution,
                                      bool splits) {
  if (holdsSubstitution) noteSubstitution(pos_, end);
  b.markInexact();
  b.word.hasExpansion = true;
  if (splits) b.word.hasSplittingExpansion = true;
  b.word.text += text_.substr(pos_, end - pos_);
  pos_ = end;
}

// $(...), `...`, <(...), >(...) or =(...) whose body starts at `bodyStart`.
void ShellWordReader::readSubstitution(WordBuilder& b, size_t bodyStart, Nest nest, bool splits) {
  Skipped skipped = skipNested(bodyStart, nest);
  if (failed()) return;
  noteSubstitution(pos_, skipped.end);
  appendExpansion(b, skipped.end, true, splits);
}

// $'...' with its escapes decoded as bash and zsh do.
void ShellWordReader::readAnsiCString(WordBuilder& b) {
  size_t i = pos_ + 2;
  std::string decoded;
  bool cut = false;  // a NUL ends the string for the program that receives it
  auto put = [&](std::string_view bytes) {
    if (!cut) decoded += bytes;
  };
  while (i < text_.size() && text_[i] != '\'') {
    if (text_[i] == '\0') return fail("NUL byte", i);
    if (text_[i] != '\\' || i + 1 >= text_.size()) {
      put(std::string_view(&text_[i], 1));
      ++i;
      continue;
    }
    char e = text_[i + 1];
    i += 2;
    if (char simple = simpleEscape(e); simple != '\0') {
      put(std::string_view(&simple, 1));
    } else if (e >= '0' && e <= '7') {
      unsigned value = static_cast<unsigned>(e - '0');
      for (int n = 0; n < 2 && i < text_.size() && text_[i] >= '0' && text_[i] <= '7'; ++n, ++i) {
        value = value * 8 + static_cast<unsigned>(text_[i] - '0');
      }
      if ((value & 0xFF) == 0) cut = true;
      char byte = static_cast<char>(value & 0xFF);
      put(std::string_view(&byte, 1));
    } else if (e == 'x' || e == 'u' || e == 'U') {
      size_t maxDigits = e == 'x' ? 2 : e == 'u' ? 4 : 8;
      uint32_t value = 0;
      size_t digits = 0;
      for (; digits < maxDigits && i < text_.size() && isHexDigit(text_[i]); ++digits, ++i) {
        value = value * 16 + hexValue(text_[i]);
      }
      if (digits == 0) {
        put("\\");
        put(std::string_view(&e, 1));
      } else if (value == 0) {
        cut = true;
      } else if (e == 'x') {
        char byte = static_cast<char>(value);
        put(std::string_view(&byte, 1));
      } else {
        put(encodeUTF8(static_cast<char32_t>(value)));
      }
    } else if (e == 'c' && i < text_.size()) {
      char control = static_cast<char>(text_[i] & 0x1F);
      ++i;
      if (control == 0) cut = true;
      put(std::string_view(&control, 1));
    } else {
      put("\\");
      put(std::string_view(&e, 1));
    }
  }
  if (i >= text_.size()) return fail("unterminated $' quote", pos_);
  b.append(decoded);
  b.word.quoted = true;
  pos_ = i + 1;
}

// Finds the end of a construct whose body starts at `from` (just behind its opening),
// honouring quotes, escapes and nested constructs. Sets the error and returns the end
// of the text if the construct is never closed.
ShellWordReader::Skipped ShellWordReader::skipNested(size_t from, Nest outer) {
  Skipped result;
  std::vector<Nest> stack{outer};
  size_t i = from;
  auto closeTop = [&]() {
    stack.pop_back();
    ++i;
    return stack.empty();
  };
  while (i < text_.size()) {
    char c = text_[i];
    char next = i + 1 < text_.size() ? text_[i + 1] : '\0';
    if (c == '\0') {
      fail("NUL byte", i);
      result.end = text_.size();
      return result;
    }
    Nest top = stack.back();
    if (c == '\\') {
      i += 2;
      continue;
    }
    if (top == Nest::backtick) {
      if (c == '`' && closeTop()) break;
      if (c != '`') ++i;
      continue;
    }
    if (c == '`') {
      result.hasSubstitution = true;
      stack.push_back(Nest::backtick);
      ++i;
      continue;
    }
    if (c == '$' && (next == '(' || next == '{' || next == '[')) {
      if (next == '(') result.hasSubstitution = true;
      stack.push_back(next == '(' ? Nest::paren : next == '{' ? Nest::brace : Nest::bracket);
      i += 2;
      continue;
    }
    if (top == Nest::doubleQuote) {
      if (c == '"' && closeTop()) break;
      if (c != '"') ++i;
      continue;
    }
    if (c == '"') {
      stack.push_back(Nest::doubleQuote);
      ++i;
      continue;
    }
    if (c == '\'') {
      size_t close = text_.find('\'', i + 1);
      if (close == std::string_view::npos) break;
      i = close + 1;
      continue;
    }
    if (top == Nest::paren && c == '#' &&
        (i == from || isShellBlank(text_[i - 1]) || text_[i - 1] == '\n' || text_[i - 1] == ';' ||
         text_[i - 1] == '(')) {
      while (i < text_.size() && text_[i] != '\n') ++i;
      continue;
    }
    if ((c == '<' || c == '>') && next == '(') {
      result.hasSubstitution = true;
      stack.push_back(Nest::paren);
      i += 2;
      continue;
    }
    Nest opens = c == '(' ? Nest::paren : c == '{' ? Nest::brace : Nest::bracket;
    bool isOpening = c == '(' || c == '{' || c == '[';
    if (isOpening && opens == top) {
      stack.push_back(opens);
      ++i;
      continue;
    }
    bool isClosing = (c == ')' && top == Nest::paren) || (c == '}' && top == Nest::brace) ||
                     (c == ']' && top == Nest::bracket);
    if (isClosing && closeTop()) break;
    if (!isClosing) ++i;
  }
  if (!stack.empty()) {
    fail("unterminated substitution or expansion", from);
    result.end = text_.size();
    return result;
  }
  result.end = i;
  return result;
}

}  // namespace zorvane::detail
