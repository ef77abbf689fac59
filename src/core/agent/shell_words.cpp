#include "core/agent/shell_words.h"

#include <algorithm>

#include "core/agent/detail/shell_word_reader.h"

namespace zorvane {

using detail::isShellBlank;
using detail::isShellDigit;
using detail::isShellNameChar;
using detail::isShellNameStart;
using detail::isShellOperatorChar;

namespace {

// Compound commands that a pipe into them reaches as a whole.
enum class GroupKind { paren, brace, conditional, loop, caseClause };

struct Group {
  GroupKind kind;
  bool readsPipe;
};

struct PendingHereDocument {
  std::string delimiter;
  bool quoted;
  bool stripTabs;
};

// Reads one script from start to end. Every loop moves forward by at least one byte,
// and nested constructs are tracked on explicit stacks, never by recursion.
class Reader : private detail::ShellWordReader {
 public:
  explicit Reader(std::string_view text) : ShellWordReader(text) {}

  ShellScript read() {
    while (!failed() && pos_ < text_.size()) step();
    if (failed()) return std::move(script_);
    finishCommand();
    if (!hereDocuments_.empty()) fail("here-document without its end line", text_.size());
    if (inConditional_) fail("unterminated [[", text_.size());
    return std::move(script_);
  }

 private:
  bool isCommandEmpty() const {
    return current_.words.empty() && current_.redirections.empty() && !current_.isHeader;
  }

  // ---- Commands and groups

  void startCommandIfEmpty(size_t at) {
    if (!isCommandEmpty()) return;
    current_.begin = at;
    current_.readsPipe = pendingPipe_ || (!groups_.empty() && groups_.back().readsPipe);
    current_.isHeader = inConditional_;
    pendingPipe_ = false;
  }

  void finishCommand() {
    if (!isCommandEmpty()) script_.commands.push_back(std::move(current_));
    current_ = ShellCommand{};
    expectFunctionName_ = false;
    skipTimeOption_ = false;
  }

  void openGroup(GroupKind kind) {
    bool inherited = !groups_.empty() && groups_.back().readsPipe;
    groups_.push_back({kind, pendingPipe_ || inherited});
    pendingPipe_ = false;
  }

  void closeGroup(GroupKind kind) {
    if (!groups_.empty() && groups_.back().kind == kind) groups_.pop_back();
  }

  // One token or separator at the top level.
  void step() {
    char c = text_[pos_];
    if (c == '\0') return fail("NUL byte", pos_);
    if (isShellBlank(c)) {
      ++pos_;
      return;
    }
    if (c == '\\' && peek(1) == '\n') {
      pos_ += 2;
      return;
    }
    if (expectPattern_ && c != '\n' && c != '#' && isCommandEmpty() && !startsWord("esac"))
      return readCasePattern();
    if (inConditional_ && (c == '<' || c == '>' || c == '(' || c == ')'))
      return readWordIntoCommand();
    switch (c) {
      case '#':
        while (pos_ < text_.size() && text_[pos_] != '\n') ++pos_;
        return;
      case '\n':
        ++pos_;
        finishCommand();
        inConditional_ = false;
        return readHereDocuments();
      case ';': {
        finishCommand();
        inConditional_ = false;
        pendingPipe_ = false;
        size_t start = pos_;
        while (pos_ < text_.size() &&
               (text_[pos_] == ';' || text_[pos_] == '&' || text_[pos_] == '|'))
          ++pos_;
        // ";;", ";&", ";;&" and zsh's ";|" end a case branch; a pattern comes next.
        bool endsBranch = pos_ - start >= 2;
        if (endsBranch && !groups_.empty() && groups_.back().kind == GroupKind::caseClause)
          expectPattern_ = true;
        return;
      }
      case '&':
        if (peek(1) == '>') return readRedirection();
        finishCommand();
        if (peek(1) != '&') inConditional_ = false;
        pendingPipe_ = false;
        pos_ += peek(1) == '&' ? 2 : 1;
        return;
      case '|':
        finishCommand();
        if (peek(1) == '|') {
          pendingPipe_ = false;
          pos_ += 2;
          return;
        }
        inConditional_ = false;
        pendingPipe_ = true;
        pos_ += peek(1) == '&' ? 2 : 1;
        return;
      case '(':
        finishCommand();
        openGroup(GroupKind::paren);
        ++pos_;
        return;
      case ')':
        finishCommand();
        closeGroup(GroupKind::paren);
        ++pos_;
        return;
      case '<':
      case '>':
        if (peek(1) == '(') return readWordIntoCommand();
        return readRedirection();
      default:
        break;
    }
    if (isShellDigit(c) || c == '{') {
      if (size_t after = descriptorPrefixEnd(); after != 0) {
        startCommandIfEmpty(pos_);
        pos_ = after;
        return readRedirection();
      }
    }
    readWordIntoCommand();
  }

  // The end of "2" in "2>x" or of "{fd}" in "{fd}>x"; 0 if no redirection follows.
  size_t descriptorPrefixEnd() const {
    size_t i = pos_;
    if (text_[i] == '{') {
      ++i;
      if (i >= text_.size() || !isShellNameStart(text_[i])) return 0;
      while (i < text_.size() && isShellNameChar(text_[i])) ++i;
      if (i >= text_.size() || text_[i] != '}') return 0;
      ++i;
    } else {
      while (i < text_.size() && isShellDigit(text_[i])) ++i;
    }
    if (i < text_.size() && (text_[i] == '<' || text_[i] == '>')) return i;
    return 0;
  }

  void readWordIntoCommand() {
    size_t start = pos_;
    bool definesFunction = false;
    ShellWord word = readWord(isCommandEmpty() ? &definesFunction : nullptr);
    if (failed()) return;
    if (pos_ == start) return fail("unexpected character", pos_);
    if (isCommandEmpty() && !word.quoted && word.isExact() && handleReservedWord(word.text, start))
      return;
    if (skipTimeOption_ && word.text == "-p" && !word.quoted) {
      skipTimeOption_ = false;
      return;
    }
    skipTimeOption_ = false;
    startCommandIfEmpty(start);
    bool endsConditional = inConditional_ && !word.quoted && word.text == "]]";
    current_.words.push_back(std::move(word));
    current_.end = pos_;
    if (endsConditional) inConditional_ = false;
    const std::vector<ShellWord>& words = current_.words;
    if (current_.isHeader && words.size() >= 3 && words.front().text == "case" &&
        words.back().text == "in" && !words.back().quoted) {
      finishCommand();
      expectPattern_ = true;
    } else if (definesFunction && current_.words.size() == 1) {
      current_.isHeader = true;
      finishCommand();
    } else if (expectFunctionName_) {
      finishCommand();
    }
  }

  // Reserved words at the start of a command: they open or close compound commands, or
  // head a construct whose words are not run. Returns false for every other word.
  bool handleReservedWord(const std::string& word, size_t start) {
    if (word == "{") {
      openGroup(GroupKind::brace);
      return true;
    }
    if (word == "if") {
      openGroup(GroupKind::conditional);
      return true;
    }
    if (word == "while" || word == "until") {
      openGroup(GroupKind::loop);
      return true;
    }
    if (word == "then" || word == "else" || word == "elif" || word == "do" || word == "!")
      return true;
    if (word == "time") {
      skipTimeOption_ = true;
      return true;
    }
    if (word == "esac") expectPattern_ = false;
    if (word == "}" || word == "fi" || word == "done" || word == "esac") {
      closeGroup(word == "}"      ? GroupKind::brace
                 : word == "fi"   ? GroupKind::conditional
                 : word == "done" ? GroupKind::loop
                                  : GroupKind::caseClause);
      return true;
    }
    bool opensLoop = word == "for" || word == "select";
    if (opensLoop || word == "case" || word == "foreach" || word == "repeat" || word == "[[" ||
        word == "function") {
      if (opensLoop) openGroup(GroupKind::loop);
      if (word == "case") openGroup(GroupKind::caseClause);
      startCommandIfEmpty(start);
      current_.isHeader = true;
      ShellWord header;
      header.text = word;
      header.literalPrefix = word.size();
      current_.words.push_back(std::move(header));
      current_.end = pos_;
      if (word == "[[") inConditional_ = true;
      if (word == "function") expectFunctionName_ = true;
      return true;
    }
    return false;
  }

  // Whether the unquoted word `word` starts at pos_ and ends there.
  bool startsWord(std::string_view word) const {
    if (!text_.substr(pos_).starts_with(word)) return false;
    size_t after = pos_ + word.size();
    return after >= text_.size() || isShellBlank(text_[after]) || text_[after] == '\n' ||
           isShellOperatorChar(text_[after]);
  }

  // A case pattern list, "a|b*)" or "(a)": its words are matched, never run.
  void readCasePattern() {
    size_t start = pos_;
    if (text_[pos_] == '(') ++pos_;
    while (!failed()) {
      while (pos_ < text_.size() && isShellBlank(text_[pos_])) ++pos_;
      if (pos_ >= text_.size()) return fail("unterminated case pattern", start);
      char c = text_[pos_];
      if (c == ')') {
        ++pos_;
        expectPattern_ = false;
        return;
      }
      if (c == '|') {
        ++pos_;
        continue;
      }
      if (c == '\n' || isShellOperatorChar(c))
        return fail("unexpected character in a case pattern", pos_);
      size_t before = pos_;
      (void)readWord(nullptr);
      if (!failed() && pos_ == before) return fail("unexpected character in a case pattern", pos_);
    }
  }

  // ---- Redirections and here-documents

  void readRedirection() {
    size_t start = pos_;
    std::string_view rest = text_.substr(pos_);
    RedirectionKind kind = RedirectionKind::truncate;
    bool targetDecides = false;  // ">&": a descriptor number duplicates, a file truncates
    bool stripTabs = false;
    auto take = [&](size_t length, RedirectionKind taken) {
      pos_ += length;
      kind = taken;
    };
    if (rest.starts_with("&>>"))
      take(3, RedirectionKind::append);
    else if (rest.starts_with("&>"))
      take(2, RedirectionKind::truncate);
    else if (rest.starts_with("<<<"))
      take(3, RedirectionKind::hereString);
    else if (rest.starts_with("<<-"))
      take(3, RedirectionKind::hereDocument), stripTabs = true;
    else if (rest.starts_with("<<"))
      take(2, RedirectionKind::hereDocument);
    else if (rest.starts_with("<>"))
      take(2, RedirectionKind::readWrite);
    else if (rest.starts_with("<&"))
      take(2, RedirectionKind::duplicate);
    else if (rest.starts_with("<"))
      take(1, RedirectionKind::input);
    else if (rest.starts_with(">>"))
      take(2, RedirectionKind::append);
    else if (rest.starts_with(">&"))
      take(2, RedirectionKind::truncate), targetDecides = true;
    else
      take(1, RedirectionKind::truncate);
    // zsh's and bash's "clobber anyway" forms: >|, >!, >>|, &>|, >&|.
    if ((kind == RedirectionKind::truncate || kind == RedirectionKind::append) &&
        (peek(0) == '|' || peek(0) == '!')) {
      ++pos_;
    }
    startCommandIfEmpty(start);
    while (pos_ < text_.size() &&
           (isShellBlank(text_[pos_]) || (text_[pos_] == '\\' && peek(1) == '\n'))) {
      pos_ += text_[pos_] == '\\' ? 2 : 1;
    }
    bool substitutionTarget = (peek(0) == '<' || peek(0) == '>') && peek(1) == '(';
    if (pos_ >= text_.size() || text_[pos_] == '\n' ||
        (isShellOperatorChar(text_[pos_]) && !substitutionTarget)) {
      return fail("redirection without a target", start);
    }
    ShellRedirection redirection;
    redirection.target = readWord(nullptr);
    if (failed()) return;
    const std::string& target = redirection.target.text;
    if (targetDecides) {
      bool isDescriptor =
          target == "-" ||
          (!target.empty() && std::all_of(target.begin(), target.end(), isShellDigit));
      if (isDescriptor && redirection.target.isExact()) kind = RedirectionKind::duplicate;
    }
    redirection.kind = kind;
    if (kind == RedirectionKind::hereDocument) {
      hereDocuments_.push_back({target, redirection.target.quoted, stripTabs});
    }
    current_.redirections.push_back(std::move(redirection));
    current_.end = pos_;
  }

  // The bodies of the here-documents opened on the line just ended. An unquoted
  // delimiter lets the shell expand the body, so substitutions there run.
  void readHereDocuments() {
    std::vector<PendingHereDocument> pending = std::move(hereDocuments_);
    hereDocuments_.clear();
    for (const PendingHereDocument& document : pending) {
      while (true) {
        if (pos_ >= text_.size()) return fail("here-document without its end line", pos_);
        size_t lineEnd = text_.find('\n', pos_);
        if (lineEnd == std::string_view::npos) lineEnd = text_.size();
        std::string_view line = text_.substr(pos_, lineEnd - pos_);
        size_t lineStart = pos_;
        pos_ = std::min(lineEnd + 1, text_.size());
        if (document.stripTabs) {
          while (!line.empty() && line.front() == '\t') line.remove_prefix(1);
        }
        if (line == document.delimiter) break;
        if (line.find('\0') != std::string_view::npos) return fail("NUL byte", lineStart);
        if (!document.quoted && hasUnescapedSubstitution(line))
          noteSubstitution(lineStart, lineEnd);
      }
    }
  }

  // "$(" or "`" not behind a backslash; "$((" counts too, as its body may hold one.
  static bool hasUnescapedSubstitution(std::string_view line) {
    for (size_t i = 0; i < line.size(); ++i) {
      if (line[i] == '\\') {
        ++i;
      } else if (line[i] == '`' || (line[i] == '$' && i + 1 < line.size() && line[i + 1] == '(')) {
        return true;
      }
    }
    return false;
  }

  ShellCommand current_;
  std::vector<Group> groups_;
  std::vector<PendingHereDocument> hereDocuments_;
  bool pendingPipe_ = false;
  bool expectFunctionName_ = false;
  bool skipTimeOption_ = false;
  bool expectPattern_ = false;  // inside "case ... in", where a pattern list comes next
};

}  // namespace

ShellScript parseShellWords(std::string_view text) {
  return Reader(text).read();
}

}  // namespace zorvane
