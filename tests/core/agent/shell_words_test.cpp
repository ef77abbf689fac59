#include "core/agent/shell_words.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace zorvane {
namespace {

std::string_view symbolOf(RedirectionKind kind) {
  switch (kind) {
    case RedirectionKind::input:
      return "<";
    case RedirectionKind::hereDocument:
      return "<<";
    case RedirectionKind::hereString:
      return "<<<";
    case RedirectionKind::readWrite:
      return "<>";
    case RedirectionKind::duplicate:
      return "&";
    case RedirectionKind::truncate:
      return ">";
    case RedirectionKind::append:
      return ">>";
  }
  return "?";
}

// A script in one line: simple commands apart by " ; ", "|" before one that reads a
// pipe, "#" before a header, each word in brackets, each redirection as its symbol and
// target; " $" for a command substitution anywhere.
std::string rendered(const ShellScript& script) {
  std::string out;
  for (const ShellCommand& command : script.commands) {
    if (!out.empty()) out += " ; ";
    out += std::string(command.readsPipe ? "|" : "") + (command.isHeader ? "#" : "");
    for (const ShellWord& word : command.words) out += "[" + word.text + "]";
    for (const ShellRedirection& redirection : command.redirections) {
      out += " " + std::string(symbolOf(redirection.kind)) + "[" + redirection.target.text + "]";
    }
  }
  return out + (script.hasCommandSubstitution ? " $" : "");
}

// Operators, groups and compound commands split a line into the simple commands a shell
// runs; quoting and escapes are undone, expansions kept as written, and words that are
// never run (loop headers, case patterns, comments, here-document bodies) stay apart.
TEST(ShellWords, ScriptsSplitIntoTheSimpleCommandsTheShellRuns) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"cd /tmp && X=1 \\rm -rf 'a b' 2>/dev/null",
       "[cd][/tmp] ; [X=1][rm][-rf][a b] >[/dev/null]"},
      {"a|b |& c; d & e || f\ng", "[a] ; |[b] ; |[c] ; [d] ; [e] ; [f] ; [g]"},
      {"r''m \"a\\\"b\" $'\\x72\\n\\u00e9' $\"q\" a\\\nb", "[rm][a\"b][r\n\u00e9][q][ab]"},
      {"$'r\\0m' x", "[r][x]"},
      {"{ a; } | ( b; c ) && d", "[a] ; |[b] ; |[c] ; [d]"},
      {"x | while read l; do sh; done; y", "[x] ; |[read][l] ; |[sh] ; [y]"},
      {"echo a |\n\n sh", "[echo][a] ; |[sh]"},
      {"if a; then ! b; fi; for x in 1 2; do time -p c; done",
       "[a] ; [b] ; #[for][x][in][1][2] ; [c]"},
      {"case $x in a|b) c;; (*) d;; esac; e", "#[case][$x][in] ; [c] ; [d] ; [e]"},
      {"f() { g; }; function h { i; }", "#[f] ; [g] ; #[function][h] ; [i]"},
      {"[[ a < b && c ]] && d", "#[[[][a][<][b] ; #[c][]]] ; [d]"},
      {"cat <<EOF >out\n$HOME )\nEOF\nls", "[cat] <<[EOF] >[out] ; [ls]"},
      {"cat <<-'E'\n\t$(x)\n\tE", "[cat] <<[E]"},
      {"cat <<E\n$(x)\nE", "[cat] <<[E] $"},
      {"x >&2 2>&- 3<>f <<< s >|g &>>h >&i {fd}<j",
       "[x] &[2] &[-] <>[f] <<<[s] >[g] >>[h] >[i] <[j]"},
      {"ls # rm -rf ~\n# x\necho a#b", "[ls] ; [echo][a#b]"},
      {"echo $((1+2)) ${a:-b} $x $[3]", "[echo][$((1+2))][${a:-b}][$x][$[3]]"},
      {"echo $((a) ) `b` <(c) \"${x:-$(y)}\"", "[echo][$((a) )][`b`][<(c)][${x:-$(y)}] $"},
      {"a=(1 \"2 3\") b", "[a=(1 \"2 3\")][b]"},
  };
  for (const auto& [text, expected] : cases) {
    SCOPED_TRACE(text);
    ShellScript script = parseShellWords(text);
    EXPECT_EQ(script.error, std::nullopt);
    EXPECT_EQ(rendered(script), expected);
  }
}

// What the shell cannot run as written is an error with what and where, never a guess.
TEST(ShellWords, TextThatCannotBeReadInFullSaysWhereItStops) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"echo 'a", "unterminated single quote at 5"},
      {"echo \"a", "unterminated double quote at 7"},
      {"echo $'a", "unterminated $' quote at 5"},
      {"echo $(a", "unterminated substitution or expansion at 7"},
      {"echo ${a", "unterminated substitution or expansion at 7"},
      {"cat <<E\nx", "here-document without its end line at 9"},
      {"cat <<E", "here-document without its end line at 7"},
      {"ls >", "redirection without a target at 3"},
      {std::string("ls\0rm", 5), "NUL byte at 2"},
      {"[[ a", "unterminated [[ at 4"},
      {"case x in a", "unterminated case pattern at 10"},
  };
  for (const auto& [text, expected] : cases) {
    SCOPED_TRACE(text);
    EXPECT_EQ(parseShellWords(text).error, expected);
  }
}

// Flags on a word say how far its text can be trusted: "x" exact, "m" may become other
// words, "t" opens with a home "~", "q" holds quoted code, "g" has a glob group.
TEST(ShellWords, WordsSayWhatTheShellMayMakeOfThem) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"abc", "x"},
      {"\"$x\"", "m"},
      {"a\"$x\"", ""},
      {"a$x", "m"},
      {"~/a", "xt"},
      {"'~'", "x"},
      {"r?", ""},
      {"*", "m"},
      {"{a,b}", "m"},
      {"x{a,b}", ""},
      {"{}", "x"},
      {"HEAD@{1}", "x"},
      {"[", "x"},
      {"[ab]", "m"},
      {"'$(x)'", "xq"},
      {"$'\\x60'", "xq"},
      {"'$'\"$y\"'('", "q"},
      {"*(e:x:)", "mg"},
  };
  for (const auto& [word, expected] : cases) {
    SCOPED_TRACE(word);
    ShellScript script = parseShellWords("echo " + word);
    ASSERT_EQ(script.commands.size(), 1u);
    ASSERT_EQ(script.commands[0].words.size(), 2u);
    const ShellWord& w = script.commands[0].words[1];
    std::string flags = std::string(w.isExact() ? "x" : "") + (w.mayBecomeOtherWords() ? "m" : "") +
                        (w.startsWithTilde ? "t" : "") + (w.holdsQuotedCode ? "q" : "") +
                        (w.hasGlobGroup ? "g" : "");
    EXPECT_EQ(flags, expected);
  }
}

}  // namespace
}  // namespace zorvane
