#include "core/agent/shell_verdict.h"

#include <algorithm>
#include <cctype>
#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "core/agent/detail/program_rules.h"
#include "core/agent/shell_words.h"

namespace zorvane {

using namespace detail;

// Commands inside wrappers and eval texts inside eval texts; deeper is judged as grave.
static constexpr int kMaxDepth = 12;

// ---------------------------------------------------------------------------------------
// Tables

// A program that runs code: which options take the code, and how to find them.
struct Interpreter {
  std::string_view evalLetters;             // short options whose value is code
  std::vector<std::string_view> evalWords;  // whole words that take code ("--eval")
  std::string_view argLetters;              // short options whose value is the next word
  std::vector<std::string_view> argWords;   // long options whose value is the next word
  std::string_view stopLetters;             // options after which the rest is not ours
  bool stopsAtOperand = false;              // the first operand is a script file
  bool evalOperand = false;                 // an operand "eval" takes code (deno eval)
  bool plusTakesCode = false;               // vim's "+cmd"
};

static const Interpreter* interpreterFor(std::string_view program) {
  static const Interpreter shell{.evalLetters = "c",
                                 .evalWords = {"--command"},
                                 .argLetters = "oO",
                                 .argWords = {"--rcfile", "--init-file", "--emulate"},
                                 .stopsAtOperand = true};
  static const Interpreter fish{
      .evalLetters = "cC", .evalWords = {"--command", "--init-command"}, .stopsAtOperand = true};
  static const Interpreter python{.evalLetters = "c",
                                  .argLetters = "WX",
                                  .argWords = {"--check-hash-based-pycs"},
                                  .stopLetters = "m",
                                  .stopsAtOperand = true};
  static const Interpreter node{
      .evalLetters = "ep", .evalWords = {"--eval", "--print"}, .evalOperand = true};
  static const Interpreter julia{.evalLetters = "eE", .evalWords = {"--eval", "--print"}};
  static const Interpreter perl{.evalLetters = "eE"};
  static const Interpreter php{.evalLetters = "rBRE"};
  static const Interpreter dashE{.evalLetters = "e"};
  static const Interpreter stdinOnly{};
  static const Interpreter gdb{
      .evalWords = {"-ex", "--ex", "-iex", "--eval-command", "-eval-command"}};
  static const Interpreter vim{.evalLetters = "c", .evalWords = {"--cmd"}, .plusTakesCode = true};
  static const Interpreter emacs{.evalWords = {"--eval", "-eval", "--execute"}};
  static const std::unordered_map<std::string_view, const Interpreter*> table = {
      {"sh", &shell},       {"bash", &shell},    {"zsh", &shell},       {"dash", &shell},
      {"ksh", &shell},      {"mksh", &shell},    {"pdksh", &shell},     {"yash", &shell},
      {"ash", &shell},      {"csh", &shell},     {"tcsh", &shell},      {"rbash", &shell},
      {"script", &shell},   {"expect", &shell},  {"fish", &fish},       {"python", &python},
      {"pypy", &python},    {"node", &node},     {"nodejs", &node},     {"bun", &node},
      {"deno", &node},      {"julia", &julia},   {"perl", &perl},       {"php", &php},
      {"ruby", &dashE},     {"irb", &dashE},     {"lua", &dashE},       {"luajit", &dashE},
      {"R", &dashE},        {"Rscript", &dashE}, {"osascript", &dashE}, {"tclsh", &stdinOnly},
      {"wish", &stdinOnly}, {"gdb", &gdb},       {"vi", &vim},          {"vim", &vim},
      {"nvim", &vim},       {"ex", &vim},        {"view", &vim},        {"emacs", &emacs},
  };
  auto found = table.find(program);
  return found == table.end() ? nullptr : found->second;
}

// A program that runs another one named in its arguments.
struct Wrapper {
  // Options whose value is the next word: short letters, and long words unless given
  // with "=".
  std::string_view argLetters;
  std::vector<std::string_view> argWords;
  // Options whose value is a command line (flock -c).
  std::string_view evalLetters;
  std::vector<std::string_view> evalWords;
  // Options whose value is split into words that join the arguments (env -S).
  std::string_view splitLetters;
  std::vector<std::string_view> splitWords;
  // Options that only name the program and run nothing (command -v).
  std::string_view lookupLetters;
  // Operands before the command: timeout's duration, flock's lock file.
  int leadingOperands = 0;
  // NAME=value words before the command (env).
  bool takesAssignments = false;
  // Words it reads from its input join the command (xargs).
  bool appendsInput = false;
};

static const Wrapper* wrapperFor(std::string_view program) {
  static const Wrapper plain{};
  static const Wrapper command{.lookupLetters = "vV"};
  static const Wrapper exec{.argLetters = "a"};
  static const Wrapper nice{.argLetters = "n", .argWords = {"--adjustment"}};
  static const Wrapper timeout{
      .argLetters = "sk", .argWords = {"--signal", "--kill-after"}, .leadingOperands = 1};
  static const Wrapper env{.argLetters = "uCP",
                           .argWords = {"--unset", "--chdir"},
                           .splitLetters = "S",
                           .splitWords = {"--split-string"},
                           .takesAssignments = true};
  static const Wrapper xargs{
      .argLetters = "adEILnPs",
      .argWords = {"--arg-file", "--delimiter", "--eof", "--replace", "--max-lines", "--max-args",
                   "--max-procs", "--max-chars", "--process-slot-var"},
      .appendsInput = true};
  static const Wrapper stdbuf{.argLetters = "ioe", .argWords = {"--input", "--output", "--error"}};
  static const Wrapper ionice{.argLetters = "cnpPu",
                              .argWords = {"--class", "--classdata", "--pid", "--pgid", "--uid"}};
  static const Wrapper flock{.argLetters = "wE",
                             .argWords = {"--timeout", "--wait", "--conflict-exit-code"},
                             .evalLetters = "c",
                             .evalWords = {"--command"},
                             .leadingOperands = 1};
  static const Wrapper time{.argLetters = "fo", .argWords = {"--format", "--output"}};
  static const Wrapper caffeinate{.argLetters = "tw"};
  static const Wrapper strace{.argLetters = "abeEIoOpPsSuUX"};
  static const Wrapper npx{
      .argLetters = "p", .argWords = {"--package"}, .evalLetters = "c", .evalWords = {"--call"}};
  static const Wrapper uvx{.argWords = {"--from", "--with", "--python"}};
  static const std::unordered_map<std::string_view, const Wrapper*> table = {
      {"command", &command}, {"builtin", &plain},
      {"exec", &exec},       {"nohup", &plain},
      {"nice", &nice},       {"timeout", &timeout},
      {"env", &env},         {"xargs", &xargs},
      {"stdbuf", &stdbuf},   {"setsid", &plain},
      {"ionice", &ionice},   {"flock", &flock},
      {"time", &time},       {"busybox", &plain},
      {"toybox", &plain},    {"noglob", &plain},
      {"nocorrect", &plain}, {"-", &plain},
      {"unbuffer", &plain},  {"caffeinate", &caffeinate},
      {"strace", &strace},   {"ltrace", &strace},
      {"chronic", &plain},   {"npx", &npx},
      {"pnpx", &npx},        {"bunx", &plain},
      {"uvx", &uvx},
  };
  auto found = table.find(program);
  return found == table.end() ? nullptr : found->second;
}

static bool contains(const std::vector<std::string_view>& words, std::string_view word) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

// Variables whose value another program runs as a command or loads as code.
static bool isCommandVariable(std::string_view name) {
  static const std::initializer_list<std::string_view> exact = {"BASH_ENV",
                                                                "ENV",
                                                                "PROMPT_COMMAND",
                                                                "PS0",
                                                                "PS1",
                                                                "PS2",
                                                                "PS3",
                                                                "PS4",
                                                                "IFS",
                                                                "SHELLOPTS",
                                                                "BASHOPTS",
                                                                "LD_PRELOAD",
                                                                "LD_AUDIT",
                                                                "EDITOR",
                                                                "VISUAL",
                                                                "FCEDIT",
                                                                "PAGER",
                                                                "LESSOPEN",
                                                                "LESSCLOSE",
                                                                "BROWSER",
                                                                "NODE_OPTIONS",
                                                                "PERL5OPT",
                                                                "RUBYOPT",
                                                                "PYTHONSTARTUP",
                                                                "ZDOTDIR",
                                                                "GIT_SSH",
                                                                "GIT_EXEC_PATH",
                                                                "GIT_CONFIG_PARAMETERS",
                                                                "GIT_CONFIG_COUNT",
                                                                "GIT_CONFIG_GLOBAL",
                                                                "GIT_CONFIG_SYSTEM",
                                                                "GIT_EXTERNAL_DIFF",
                                                                "GIT_TEMPLATE_DIR"};
  if (std::find(exact.begin(), exact.end(), name) != exact.end()) return true;
  for (std::string_view suffix : {"_COMMAND", "_PAGER", "_EDITOR", "_ASKPASS", "ASKPASS"}) {
    if (name.ends_with(suffix)) return true;
  }
  return name.starts_with("GIT_CONFIG_KEY_") || name.starts_with("GIT_CONFIG_VALUE_");
}

// ---------------------------------------------------------------------------------------
// Words

// The variable name of an assignment word ("A" for "A=1", "A+=x", "A[2]=y"); empty if
// the word is no assignment. The name must be literal text.
static std::string_view assignedName(const ShellWord& word) {
  std::string_view text = word.text;
  auto isNameChar = [](char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '_'; };
  if (text.empty() || !isNameChar(text[0]) || std::isdigit(static_cast<unsigned char>(text[0])))
    return {};
  size_t end = 1;
  while (end < text.size() && isNameChar(text[end])) ++end;
  if (word.literalPrefix < end) return {};
  size_t at = end;
  if (at < text.size() && text[at] == '[') {
    at = text.find(']', at);
    if (at == std::string_view::npos) return {};
    ++at;
  }
  if (at < text.size() && text[at] == '+') ++at;
  if (at >= text.size() || text[at] != '=') return {};
  return text.substr(0, end);
}

// The program a command word names: its last path component, without zsh's "=" prefix.
static std::string_view programName(std::string_view word) {
  if (word.size() > 1 && word.front() == '=') word.remove_prefix(1);
  while (word.size() > 1 && word.back() == '/') word.remove_suffix(1);
  size_t slash = word.rfind('/');
  return slash == std::string_view::npos ? word : word.substr(slash + 1);
}

// "python3.12" → "python", "lua5.4" → "lua": the name without a trailing version.
static std::string_view withoutVersion(std::string_view program) {
  while (!program.empty() &&
         (std::isdigit(static_cast<unsigned char>(program.back())) || program.back() == '.')) {
    program.remove_suffix(1);
  }
  return program;
}

// ---------------------------------------------------------------------------------------
// The judge

namespace {

struct Context {
  int depth = 0;
  bool stdinIsCode = false;  // a pipe or a here-document feeds the command
};

class Judge {
 public:
  ShellVerdict verdict;

  // `stdinIsCode`: the text runs with a pipe or here-document on its input (eval in a
  // pipeline), which every command in it may read.
  void judgeText(std::string_view text, int depth, std::string_view evidence,
                 bool stdinIsCode = false) {
    if (settled()) return;
    if (depth > kMaxDepth) return raise(kTooDeep, evidence);
    ShellScript script = parseShellWords(text);
    if (script.error) return raise(kUnreadable, depth == 0 ? std::string_view() : evidence);
    if (script.hasCommandSubstitution) {
      std::string_view part =
          text.substr(script.substitutionBegin, script.substitutionEnd - script.substitutionBegin);
      return raise(kSubstitution, depth == 0 ? part : evidence);
    }
    for (const ShellCommand& command : script.commands) {
      if (settled()) return;
      std::string_view source =
          depth == 0 ? text.substr(command.begin, command.end - command.begin) : evidence;
      evidence_ = source;
      judgeCommand(command, {depth, command.readsPipe || stdinIsCode});
    }
  }

 private:
  bool settled() const { return verdict.actionClass == ActionClass::irreversible; }

  void raise(std::string_view reason, std::string_view evidence) {
    if (settled()) return;
    verdict = {ActionClass::irreversible, std::string(reason), std::string(evidence)};
  }
  void raise(std::string_view reason) { raise(reason, evidence_); }

  void judgeCommand(const ShellCommand& command, Context context) {
    for (const ShellRedirection& redirection : command.redirections) {
      // bash opens a network connection for these names itself.
      const std::string& target = redirection.target.text;
      if (target.starts_with("/dev/tcp/") || target.starts_with("/dev/udp/")) return raise(kSends);
      if (redirection.kind == RedirectionKind::truncate && !isHarmlessSink(redirection.target)) {
        return raise(kOverwrites);
      }
      if (redirection.kind == RedirectionKind::hereDocument ||
          redirection.kind == RedirectionKind::hereString) {
        context.stdinIsCode = true;
      }
    }
    for (const ShellWord& word : command.words) {
      if (word.hasGlobGroup) return raise(kGlobCode);
      if (word.holdsQuotedCode) return raise(kStoredCode);
    }
    if (command.isHeader) return;
    std::span<const ShellWord> words = command.words;
    while (!words.empty()) {
      std::string_view name = assignedName(words.front());
      if (name.empty()) break;
      if (isCommandVariable(name)) return raise(kCommandVariable);
      words = words.subspan(1);
    }
    judgeArguments(words, context);
  }

  // One program and its arguments, leading assignments already gone.
  void judgeArguments(std::span<const ShellWord> argv, Context context) {
    if (argv.empty() || settled()) return;
    if (context.depth > kMaxDepth) return raise(kTooDeep);
    if (!argv[0].isExact()) return raise(kUnknownProgram);
    std::string_view program = programName(argv[0].text);
    std::span<const ShellWord> args = argv.subspan(1);

    if (Reason reason = programGravity(program, args)) return raise(*reason);
    if (const Interpreter* interpreter = interpreterFor(program))
      return judgeInterpreter(*interpreter, args, context);
    if (const Interpreter* interpreter = interpreterFor(withoutVersion(program))) {
      return judgeInterpreter(*interpreter, args, context);
    }
    if (const Wrapper* wrapper = wrapperFor(program)) return judgeWrapper(*wrapper, argv, context);

    if (program == "eval") return judgeJoined(args, context);
    if (program == "." || program == "source") return judgeSource(args, context);
    if (program == "trap") return judgeTrap(args, context);
    if (program == "alias") return judgeAlias(args, context);
    if (program == "watch") return judgeWatch(args, context);
    if (program == "export" || program == "declare" || program == "typeset" || program == "local" ||
        program == "readonly" || program == "integer" || program == "float") {
      for (const ShellWord& word : args) {
        if (isCommandVariable(assignedName(word))) return raise(kCommandVariable);
      }
      return;
    }
    if (program == "find" || program == "gfind") return judgeFind(args, context);
  }

  // ---- Programs that run code

  void judgeInterpreter(const Interpreter& interpreter, std::span<const ShellWord> args,
                        Context context) {
    if (context.stdinIsCode) return raise(kPipedCode);
    for (size_t i = 0; i < args.size(); ++i) {
      const ShellWord& word = args[i];
      const std::string& text = word.text;
      if (word.mayBecomeOtherWords()) return raise(kUnknownOptions);
      if (contains(interpreter.evalWords, text.substr(0, text.find('='))))
        return raise(kInlineCode);
      if (interpreter.plusTakesCode && text.starts_with("+")) return raise(kInlineCode);
      if (interpreter.evalOperand && text == "eval") return raise(kInlineCode);
      if (text == "--") {
        if (interpreter.stopsAtOperand) return;
        continue;
      }
      if (text.starts_with("--")) {
        if (contains(interpreter.argWords, text) && text.find('=') == std::string::npos) ++i;
        continue;
      }
      if (isShortCluster(text) || (text.size() >= 2 && text[0] == '+')) {
        for (size_t k = 1; k < text.size(); ++k) {
          if (text[0] == '-' && containsLetter(interpreter.evalLetters, text[k]))
            return raise(kInlineCode);
          if (containsLetter(interpreter.stopLetters, text[k]) && interpreter.stopsAtOperand)
            return;
          if (containsLetter(interpreter.argLetters, text[k])) {
            if (k + 1 == text.size()) ++i;
            break;
          }
        }
        continue;
      }
      if (interpreter.stopsAtOperand) return;
    }
  }

  // Options come before the command, and for flock also after its lock file, so they
  // are read before and after the leading operands.
  void judgeWrapper(const Wrapper& wrapper, std::span<const ShellWord> argv, Context context) {
    size_t i = 1;
    for (int round = 0; round < 2; ++round) {
      std::optional<size_t> next = skipWrapperOptions(wrapper, argv, i, context);
      if (!next) return;
      i = *next;
      for (int operand = 0; round == 0 && operand < wrapper.leadingOperands && i < argv.size();
           ++operand, ++i) {
        if (argv[i].mayBecomeOtherWords()) return raise(kUnknownOptions);
      }
      if (wrapper.leadingOperands == 0) break;
    }
    while (wrapper.takesAssignments && i < argv.size()) {
      std::string_view name = assignedName(argv[i]);
      if (name.empty()) break;
      if (isCommandVariable(name)) return raise(kCommandVariable);
      ++i;
    }
    if (i >= argv.size()) return;
    std::vector<ShellWord> inner(argv.begin() + static_cast<std::ptrdiff_t>(i), argv.end());
    if (wrapper.appendsInput) {
      // xargs adds the words it reads to the command; they may be anything.
      ShellWord unknown;
      unknown.text = "$input";
      unknown.hasExpansion = unknown.hasSplittingExpansion = true;
      inner.push_back(std::move(unknown));
    }
    judgeArguments(inner, {context.depth + 1, context.stdinIsCode});
  }

  // Reads the wrapper's options from `i` on. Returns the index of the first word that is
  // not one, or nothing when the verdict is settled (or handed to judgeSplit).
  std::optional<size_t> skipWrapperOptions(const Wrapper& wrapper, std::span<const ShellWord> argv,
                                           size_t i, Context context) {
    while (i < argv.size()) {
      const ShellWord& word = argv[i];
      const std::string& text = word.text;
      if (word.mayBecomeOtherWords()) {
        raise(kUnknownOptions);
        return std::nullopt;
      }
      if (text == "--") return i + 1;
      if (text.starts_with("--")) {
        size_t equals = text.find('=');
        std::string_view name = std::string_view(text).substr(0, equals);
        if (contains(wrapper.evalWords, name)) {
          raise(kInlineCode);
          return std::nullopt;
        }
        if (contains(wrapper.splitWords, name)) {
          std::string_view value =
              equals == std::string::npos
                  ? (i + 1 < argv.size() ? std::string_view(argv[i + 1].text) : "")
                  : std::string_view(text).substr(equals + 1);
          judgeSplit(argv, i, equals == std::string::npos ? 2 : 1, value, wrapper, context);
          return std::nullopt;
        }
        i += contains(wrapper.argWords, name) && equals == std::string::npos ? 2 : 1;
        continue;
      }
      if (!isShortCluster(text)) return i;
      size_t step = 1;
      for (size_t k = 1; k < text.size(); ++k) {
        char letter = text[k];
        if (containsLetter(wrapper.lookupLetters, letter)) return std::nullopt;
        if (containsLetter(wrapper.evalLetters, letter)) {
          raise(kInlineCode);
          return std::nullopt;
        }
        bool splits = containsLetter(wrapper.splitLetters, letter);
        if (!splits && !containsLetter(wrapper.argLetters, letter)) continue;
        bool valueIsNext = k + 1 == text.size();
        if (splits) {
          std::string_view value =
              valueIsNext ? (i + 1 < argv.size() ? std::string_view(argv[i + 1].text) : "")
                          : std::string_view(text).substr(k + 1);
          judgeSplit(argv, i, valueIsNext ? 2 : 1, value, wrapper, context);
          return std::nullopt;
        }
        if (valueIsNext) step = 2;
        break;
      }
      i += step;
    }
    return i;
  }

  // env -S "words": the value is split into words that take its place among the
  // arguments, options and the command included.
  void judgeSplit(std::span<const ShellWord> argv, size_t at, size_t taken, std::string_view value,
                  const Wrapper& wrapper, Context context) {
    if (context.depth >= kMaxDepth) return raise(kTooDeep);
    ShellScript split = parseShellWords(value);
    if (split.error || split.hasCommandSubstitution || split.commands.size() > 1 ||
        (!split.commands.empty() && !split.commands.front().redirections.empty())) {
      return raise(kInlineCode);
    }
    std::vector<ShellWord> spliced(argv.begin(), argv.begin() + static_cast<std::ptrdiff_t>(at));
    if (!split.commands.empty()) {
      for (ShellWord& word : split.commands.front().words) spliced.push_back(std::move(word));
    }
    size_t rest = std::min(argv.size(), at + taken);
    spliced.insert(spliced.end(), argv.begin() + static_cast<std::ptrdiff_t>(rest), argv.end());
    judgeWrapper(wrapper, spliced, {context.depth + 1, context.stdinIsCode});
  }

  // The words joined with blanks and read as a command line, as eval does.
  void judgeJoined(std::span<const ShellWord> words, Context context) {
    std::string joined;
    for (const ShellWord& word : words) {
      if (!word.isExact()) return raise(kUnknownProgram);
      if (!joined.empty()) joined += ' ';
      joined += word.text;
    }
    judgeText(joined, context.depth + 1, evidence_, context.stdinIsCode);
  }

  void judgeSource(std::span<const ShellWord> args, Context context) {
    if (context.stdinIsCode) return raise(kPipedCode);
    for (const ShellWord& word : args) {
      if (word.text == "/dev/stdin" || word.text.starts_with("/dev/fd/") ||
          word.text.starts_with("/proc/")) {
        return raise(kPipedCode);
      }
    }
  }

  void judgeTrap(std::span<const ShellWord> args, Context context) {
    std::span<const ShellWord> rest = args;
    if (!rest.empty() && rest.front().text == "--") rest = rest.subspan(1);
    if (rest.empty() || rest.front().text.starts_with("-")) return;
    judgeJoined(rest.first(1), context);
  }

  void judgeAlias(std::span<const ShellWord> args, Context context) {
    for (const ShellWord& word : args) {
      size_t equals = word.text.find('=');
      if (equals == std::string::npos) continue;
      if (!word.isExact()) return raise(kUnknownProgram);
      judgeText(std::string_view(word.text).substr(equals + 1), context.depth + 1, evidence_,
                false);
    }
  }

  // watch runs its arguments joined through "sh -c", or as they are with -x.
  void judgeWatch(std::span<const ShellWord> args, Context context) {
    size_t i = 0;
    bool exec = false;
    for (; i < args.size(); ++i) {
      const std::string& text = args[i].text;
      if (args[i].mayBecomeOtherWords()) return raise(kUnknownOptions);
      if (text == "--") {
        ++i;
        break;
      }
      if (!text.starts_with("-")) break;
      if (text == "-x" || text == "--exec") exec = true;
      if (text == "-n" || text == "--interval") ++i;
    }
    std::span<const ShellWord> command = args.subspan(std::min(i, args.size()));
    if (exec) return judgeArguments(command, {context.depth + 1, false});
    judgeJoined(command, context);
  }

  // find runs the command behind -exec, -execdir, -ok and -okdir for each file.
  void judgeFind(std::span<const ShellWord> args, Context context) {
    for (size_t i = 0; i < args.size(); ++i) {
      const ShellWord& word = args[i];
      if (word.mayBecomeOtherWords()) return raise(kUnknownOptions);
      const std::string& text = word.text;
      if (text == "-delete") return raise(kDeletes);
      if (text == "-fprint" || text == "-fprint0" || text == "-fprintf" || text == "-fls")
        return raise(kOverwrites);
      if (text != "-exec" && text != "-execdir" && text != "-ok" && text != "-okdir") continue;
      size_t end = i + 1;
      while (end < args.size() && args[end].text != ";" && args[end].text != "+") ++end;
      judgeArguments(args.subspan(i + 1, end - i - 1), {context.depth + 1, false});
      if (settled()) return;
      i = end;
    }
  }

  // The top-level simple command being judged, as written; the evidence of a raise.
  std::string_view evidence_;
};

}  // namespace

ShellVerdict judgeShellCommand(std::string_view command) {
  Judge judge;
  judge.judgeText(command, 0, {});
  return judge.verdict;
}

}  // namespace zorvane
