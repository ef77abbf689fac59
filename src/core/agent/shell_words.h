// ShellWords: a shell command line taken apart the way a POSIX shell, bash or zsh reads
// it, for judging what the line does before it runs.
//
// An agent's command reaches a real shell, which undoes quoting, joins continued lines
// and splits the text at operators before anything runs. A policy that searched the raw
// text would be fooled by every spelling the shell accepts ("\rm", "r''m", "/bin/rm",
// "$'\x72m'", "{ rm; }", "sh -c '...'"). `parseShellWords` does that reading instead:
//
//   ShellScript script = parseShellWords("cd /tmp && X=1 \\rm -rf 'a b' 2>/dev/null");
//   // two simple commands: ["cd", "/tmp"] and ["X=1", "rm", "-rf", "a b"], the second
//   // with one redirection (truncate, target "/dev/null")
//
// What it does:
//   - splits at ";", "&", "&&", "||", "|", "|&", newlines, "(", ")" and the reserved
//     words that open and close compound commands ("{", "}", "if", "then", "do", "done",
//     ...), which never reach `words`;
//   - removes single, double, $'...' (with its escapes decoded) and $"..." quotes and
//     backslash escapes, and joins lines continued with a backslash;
//   - keeps every expansion ($x, ${...}, $(...), `...`, $((...)), <(...), >(...)) as the
//     text it was written as, and flags the word, because its value is only known when
//     it runs; a command substitution is also flagged on the whole script;
//   - takes redirections out of the words, with their kind and target;
//   - skips comments, and the bodies of here-documents up to their end line (an
//     unquoted body is searched for command substitutions, as the shell expands it).
//
// What it does not do: expand anything, follow aliases or functions, or check the
// grammar beyond what splitting needs. Anything it cannot read in full (an open quote or
// substitution, a here-document without its end line, a NUL byte) is reported in
// `error`, and callers should then assume the worst. Every input gets an answer in time
// linear in its length, and nothing here recurses on the input's nesting or throws.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zorvane {

// One word after quote removal.
struct ShellWord {
  // The text as the program receives it when nothing in it expands: quotes removed,
  // escapes resolved; an expansion stays as written ("$HOME", "$(date)").
  std::string text;
  // How many leading bytes of `text` are literal, before the first expansion or pattern.
  size_t literalPrefix = 0;
  // Some quoting or escaping was used: a quoted "{" or "if" is an ordinary word.
  bool quoted = false;
  // A parameter, command or arithmetic expansion appears somewhere.
  bool hasExpansion = false;
  // One of them outside double quotes: the shell splits its value into more words.
  bool hasSplittingExpansion = false;
  // An unquoted "*", "?", "[" or brace expansion ("{a,b}", "{1..3}"): the shell may
  // put file names or several words in its place.
  bool hasPattern = false;
  // A "(" glued to the word ("*(e:...:)", "@(a|b)"): zsh's glob qualifiers and bash's
  // extended patterns, some of which run code.
  bool hasGlobGroup = false;
  // An unquoted "~" opens the word: the shell puts a home folder there.
  bool startsWithTilde = false;
  // Its quoted or escaped text spells "$(" or "`" (expansions left out, so "'$'\"$x\"'('"
  // counts): a command that arithmetic, eval or a prompt may run when it expands the
  // variable the word is stored in.
  bool holdsQuotedCode = false;

  // The word is exactly `text` when the command runs.
  [[nodiscard]] bool isExact() const { return !hasExpansion && !hasPattern && !hasGlobGroup; }
  // The word may turn into other words, options included, that this text does not show:
  // a split expansion anywhere, or an inexact word without a literal start.
  [[nodiscard]] bool mayBecomeOtherWords() const {
    return hasSplittingExpansion || (!isExact() && literalPrefix == 0);
  }
};

enum class RedirectionKind {
  input,         // <
  hereDocument,  // << and <<-; the target is the end line
  hereString,    // <<<
  readWrite,     // <>
  duplicate,     // <&n, >&n, >&- : one descriptor made a copy of another
  truncate,      // >, >|, >!, &>, >&file
  append,        // >>, &>>
};

struct ShellRedirection {
  RedirectionKind kind = RedirectionKind::input;
  ShellWord target;
};

// One simple command: a program with its arguments, leading assignments included.
struct ShellCommand {
  std::vector<ShellWord> words;
  std::vector<ShellRedirection> redirections;
  // Its standard input comes from a pipe: it follows "|" or "|&", or sits in a group or
  // compound command that does.
  bool readsPipe = false;
  // The words head a construct and are not run: "for x in ...", "case x in", "[[ ... ]]",
  // "function f", "f()".
  bool isHeader = false;
  // Where it stands in the script's text, for showing it.
  size_t begin = 0;
  size_t end = 0;
};

struct ShellScript {
  std::vector<ShellCommand> commands;
  // A command substitution or process substitution appears: $(...), `...`, <(...),
  // >(...), zsh's =(...), also inside ${...}, $((...)) or an unquoted here-document.
  bool hasCommandSubstitution = false;
  // Where the first one starts and ends in the text.
  size_t substitutionBegin = 0;
  size_t substitutionEnd = 0;
  // Why the text could not be read in full, with the byte offset: "unterminated single
  // quote at 4". Absent when it could.
  std::optional<std::string> error;
};

// Reads `text` as a shell script. See the file comment for what that includes.
[[nodiscard]] ShellScript parseShellWords(std::string_view text);

}  // namespace zorvane
