#include "core/agent/detail/program_rules.h"

#include <algorithm>
#include <cctype>
#include <initializer_list>
#include <string>
#include <unordered_map>
#include <vector>

#include "core/base/paths.h"
#include "core/base/url.h"

namespace zorvane::detail {

// ---------------------------------------------------------------------------------------
// Tables

// Programs that are irreversible whatever their arguments.
static const std::unordered_map<std::string_view, std::string_view>& gravePrograms() {
  static const std::unordered_map<std::string_view, std::string_view> programs = {
      {"rm", kDeletes},         {"unlink", kDeletes},     {"rmdir", kDeletes},
      {"shred", kDeletes},      {"srm", kDeletes},        {"wipe", kDeletes},
      {"rimraf", kDeletes},     {"grm", kDeletes},        {"gunlink", kDeletes},
      {"grmdir", kDeletes},     {"gshred", kDeletes},     {"truncate", kEmpties},
      {"gtruncate", kEmpties},  {"mkfs", kWipesDisk},     {"mke2fs", kWipesDisk},
      {"mkswap", kWipesDisk},   {"wipefs", kWipesDisk},   {"fdisk", kWipesDisk},
      {"sfdisk", kWipesDisk},   {"cfdisk", kWipesDisk},   {"gdisk", kWipesDisk},
      {"sgdisk", kWipesDisk},   {"parted", kWipesDisk},   {"blkdiscard", kWipesDisk},
      {"diskutil", kWipesDisk}, {"shutdown", kPowersOff}, {"reboot", kPowersOff},
      {"poweroff", kPowersOff}, {"halt", kPowersOff},     {"sudo", kOtherUser},
      {"doas", kOtherUser},     {"su", kOtherUser},       {"pkexec", kOtherUser},
      {"run0", kOtherUser},     {"runuser", kOtherUser},  {"scp", kSends},
      {"sftp", kSends},         {"ftp", kSends},          {"ssh", kSends},
      {"nc", kSends},           {"ncat", kSends},         {"netcat", kSends},
      {"socat", kSends},        {"telnet", kSends},       {"mail", kSends},
      {"mailx", kSends},        {"sendmail", kSends},     {"mutt", kSends},
      {"at", kRunsLater},       {"batch", kRunsLater},    {"systemd-run", kRunsLater},
      {"parallel", kRunsLater}, {"coproc", kRunsLater},   {"killall5", kKillsAll},
  };
  return programs;
}

// Options with which a program runs a command of the caller's choice: long options by
// prefix, and short option letters.
struct CommandOptions {
  std::vector<std::string_view> prefixes;
  std::string_view letters;
};

static const CommandOptions* commandOptionsFor(std::string_view program) {
  static const CommandOptions tar{{"--checkpoint-action", "--to-command", "--use-compress-program",
                                   "--rsh-command", "--info-script", "--new-volume-script"},
                                  "IF"};
  static const CommandOptions zip{{"-TT", "--unzip-command"}, ""};
  static const std::unordered_map<std::string_view, const CommandOptions*> table = {
      {"tar", &tar}, {"gtar", &tar}, {"bsdtar", &tar}, {"zip", &zip}};
  auto found = table.find(program);
  return found == table.end() ? nullptr : found->second;
}

// ---------------------------------------------------------------------------------------
// Words

bool isHarmlessSink(const ShellWord& word) {
  return word.isExact() &&
         (word.text == "/dev/null" || word.text == "/dev/stdout" || word.text == "/dev/stderr");
}

static bool hasExactWord(std::span<const ShellWord> words,
                         std::initializer_list<std::string_view> any) {
  return std::any_of(words.begin(), words.end(), [&](const ShellWord& word) {
    return std::find(any.begin(), any.end(), word.text) != any.end();
  });
}

// Whether a short-option cluster such as "-fdx" holds `letter`.
static bool clusterHas(std::span<const ShellWord> words, char letter) {
  return std::any_of(words.begin(), words.end(), [&](const ShellWord& word) {
    return isShortCluster(word.text) &&
           containsLetter(std::string_view(word.text).substr(1), letter);
  });
}

static std::vector<std::string_view> operandsOf(std::span<const ShellWord> words) {
  std::vector<std::string_view> operands;
  for (const ShellWord& word : words) {
    if (!word.text.starts_with("-")) operands.push_back(word.text);
  }
  return operands;
}

// Whether a path operand of a recursive chmod or chown reaches across the home folder:
// the root, a top-level folder, the home folder or one above it, or anything not known
// until it runs. A relative path counts when it climbs with "..".
static bool isBroadTarget(const ShellWord& word) {
  std::string path = word.text;
  if (!word.isExact()) {
    path.resize(word.literalPrefix);
    size_t slash = path.rfind('/');
    path.resize(slash == std::string::npos ? 0 : slash + 1);
  }
  if (path.empty()) return true;
  if (word.startsWithTilde) {
    size_t slash = path.find('/');
    if (slash == std::string::npos || slash != 1) return true;  // "~", "~user"
    path = Paths::home() + path.substr(1);
  }
  if (path.front() != '/') {
    return path == ".." || path.starts_with("../") || path.find("/../") != std::string::npos ||
           path.ends_with("/..");
  }
  std::string standardized = URL::fileURL(path).standardized().path();
  std::string home = URL::fileURL(Paths::home()).standardized().path();
  if (std::count(standardized.begin(), standardized.end(), '/') <= 1) return true;
  return standardized == home || home.starts_with(standardized + "/");
}

// kUnknownOptions if any word may turn into other words, options included.
static Reason reasonForUnknownWords(std::span<const ShellWord> words) {
  bool found = std::any_of(words.begin(), words.end(),
                           [](const ShellWord& w) { return w.mayBecomeOtherWords(); });
  return found ? Reason(kUnknownOptions) : std::nullopt;
}

// ---------------------------------------------------------------------------------------
// Rules

// "git checkout" that overwrites files in the work tree rather than switching branch.
static bool checkoutDiscards(std::span<const ShellWord> args) {
  int operands = 0;
  for (size_t i = 0; i < args.size(); ++i) {
    const ShellWord& word = args[i];
    const std::string& text = word.text;
    if (text == "--") return i + 1 < args.size();
    if (text == "--force" || text == "--patch" || text == "--ours" || text == "--theirs" ||
        text == ".") {
      return true;
    }
    if (isShortCluster(text) && text.find_first_of("fp") != std::string::npos) return true;
    if (text == "-b" || text == "-B" || text == "--orphan") {
      ++i;
      continue;
    }
    if (text.starts_with("-")) continue;
    if (word.hasPattern) return true;
    ++operands;
  }
  return operands >= 2;
}

// Configuration keys whose value git runs or loads: aliases with "!", pagers,
// editors, helpers, hooks, filters, URL rewrites and included files.
static bool setsRunningConfiguration(const std::vector<std::string_view>& operands) {
  static const std::initializer_list<std::string_view> parts = {
      "alias.", "pager",   "editor",  "sshcommand", "fsmonitor", "hookspath", "askpass",
      "helper", "program", "driver",  "textconv",   "command",   "external",  "insteadof",
      "cmd",    "proxy",   "filter.", "include",    "hook",      "tool"};
  for (std::string_view operand : operands) {
    std::string key(operand);
    std::transform(key.begin(), key.end(), key.begin(),
                   [](unsigned char c) { return std::tolower(c); });
    for (std::string_view part : parts) {
      if (key.find(part) != std::string::npos) return true;
    }
  }
  return false;
}

static bool isChangingMethod(std::string_view method) {
  std::string upper(method);
  std::transform(upper.begin(), upper.end(), upper.begin(),
                 [](unsigned char c) { return std::toupper(c); });
  return upper != "GET" && upper != "HEAD" && upper != "OPTIONS";
}

static Reason awkGravity(std::span<const ShellWord> args) {
  for (size_t i = 0; i < args.size(); ++i) {
    const ShellWord& word = args[i];
    if (word.mayBecomeOtherWords()) return kUnknownOptions;
    const std::string& text = word.text;
    if (text == "-f" || text.starts_with("--file")) return std::nullopt;  // the program is a file
    if (text == "-F" || text == "-v" || text == "-i" || text == "-l") {
      ++i;
      continue;
    }
    if (text.starts_with("-") && text != "-e" && text != "--source") continue;
    std::string_view program = text;
    if (text == "-e" || text == "--source") {
      if (i + 1 >= args.size()) return std::nullopt;
      program = args[++i].text;
    }
    bool runsCommands = program.find("system") != std::string_view::npos ||
                        program.find('|') != std::string_view::npos ||
                        program.find('>') != std::string_view::npos;
    if (runsCommands) return "runs commands or writes files from awk";
    return std::nullopt;
  }
  return std::nullopt;
}

static Reason commandOptionsGravity(const CommandOptions& options,
                                    std::span<const ShellWord> args) {
  if (Reason unknown = reasonForUnknownWords(args)) return unknown;
  for (const ShellWord& word : args) {
    std::string_view text = word.text;
    for (std::string_view prefix : options.prefixes) {
      if (text.starts_with(prefix)) return kOptionCommand;
    }
    if (!isShortCluster(text)) continue;
    for (char letter : text.substr(1)) {
      if (containsLetter(options.letters, letter)) return kOptionCommand;
    }
  }
  return std::nullopt;
}

static Reason gitGravity(std::span<const ShellWord> args) {
  size_t i = 0;
  for (; i < args.size(); ++i) {
    const ShellWord& word = args[i];
    if (word.mayBecomeOtherWords()) return kUnknownOptions;
    const std::string& text = word.text;
    if (!text.starts_with("-")) break;
    if (text.starts_with("-c") || text.starts_with("--config-env") ||
        text.starts_with("--exec-path=")) {
      return kGitRuns;
    }
    if (text == "-C" || text == "--git-dir" || text == "--work-tree" || text == "--namespace" ||
        text == "--super-prefix") {
      ++i;
    }
  }
  if (i >= args.size()) return std::nullopt;
  if (!args[i].isExact()) return kUnknownOptions;
  std::string_view sub = args[i].text;
  std::span<const ShellWord> rest = args.subspan(i + 1);

  if (sub == "push") return kPushes;
  if (sub == "clean") return kUntracked;
  if (sub == "filter-branch" || sub == "filter-repo") return kHistory;
  if (sub == "send-email" || sub == "imap-send") return kSends;
  if (Reason unknown = reasonForUnknownWords(rest)) return unknown;
  for (const ShellWord& word : rest) {
    std::string_view text = word.text;
    if (text.starts_with("--upload-pack") || text.starts_with("--receive-pack") ||
        text.starts_with("--exec") || text.starts_with("--extcmd") ||
        text.starts_with("--open-files-in-pager") || text.starts_with("ext::")) {
      return kGitRuns;
    }
  }
  std::vector<std::string_view> operands = operandsOf(rest);
  auto firstOperandIs = [&](std::initializer_list<std::string_view> names) {
    return !operands.empty() &&
           std::find(names.begin(), names.end(), operands.front()) != names.end();
  };
  if (sub == "reset" && hasExactWord(rest, {"--hard", "--merge"})) return kDiscards;
  if (sub == "checkout" && checkoutDiscards(rest)) return kDiscards;
  if (sub == "restore" &&
      !(hasExactWord(rest, {"--staged", "-S"}) && !hasExactWord(rest, {"--worktree", "-W"}))) {
    return kDiscards;
  }
  bool forced = clusterHas(rest, 'f') || hasExactWord(rest, {"--force"});
  if (sub == "switch" && (forced || hasExactWord(rest, {"--discard-changes"}))) return kDiscards;
  if (sub == "stash" && firstOperandIs({"drop", "clear"})) return kHistory;
  if (sub == "branch" && (clusterHas(rest, 'D') || (hasExactWord(rest, {"-d", "--delete"}) &&
                                                    hasExactWord(rest, {"-f", "--force"})))) {
    return kHistory;
  }
  if (sub == "reflog" && firstOperandIs({"expire", "delete"})) return kHistory;
  if (sub == "gc" && std::any_of(rest.begin(), rest.end(), [](const ShellWord& w) {
        return w.text.starts_with("--prune");
      })) {
    return kHistory;
  }
  if (sub == "update-ref" && hasExactWord(rest, {"-d"})) return kHistory;
  if ((sub == "worktree" && firstOperandIs({"remove"}) && forced) || (sub == "rm" && forced)) {
    return kDeletes;
  }
  if ((sub == "submodule" && firstOperandIs({"foreach"})) ||
      (sub == "bisect" && firstOperandIs({"run"})) ||
      (sub == "rebase" && hasExactWord(rest, {"-x"})) ||
      (sub == "difftool" && hasExactWord(rest, {"-x"})) ||
      (sub == "clone" && hasExactWord(rest, {"-u"}))) {
    return kGitRuns;
  }
  if (sub == "config" && setsRunningConfiguration(operands)) return kGitRuns;
  return std::nullopt;
}

static Reason ddGravity(std::span<const ShellWord> args) {
  for (const ShellWord& word : args) {
    if (word.mayBecomeOtherWords()) return kUnknownOptions;
    if (word.text.starts_with("of=") && word.text != "of=/dev/null") return kRawWrite;
  }
  return std::nullopt;
}

// Options that make curl send data: -d/--data*, --json, -F/--form*, -T/--upload-file,
// -K/--config (options from a file) and a changing -X method.
static Reason curlGravity(std::span<const ShellWord> args) {
  static constexpr std::string_view kValueLetters = "AbcCdDeEFHKmoPQrtTuUwxXyYz";
  for (size_t i = 0; i < args.size(); ++i) {
    const ShellWord& word = args[i];
    if (word.mayBecomeOtherWords()) return kUnknownOptions;
    std::string_view text = word.text;
    if (text.starts_with("--")) {
      for (std::string_view option :
           {"--data", "--json", "--form", "--upload-file", "--config", "--post"}) {
        if (text.starts_with(option)) return kUploads;
      }
      if (text == "--request" && i + 1 < args.size() && isChangingMethod(args[i + 1].text))
        return kUploads;
      continue;
    }
    if (!isShortCluster(text)) continue;
    for (size_t k = 1; k < text.size(); ++k) {
      char letter = text[k];
      if (containsLetter("dFTK", letter)) return kUploads;
      if (!containsLetter(kValueLetters, letter)) continue;
      std::string_view value = k + 1 < text.size()   ? text.substr(k + 1)
                               : i + 1 < args.size() ? std::string_view(args[++i].text)
                                                     : std::string_view();
      if (letter == 'X' && isChangingMethod(value)) return kUploads;
      break;
    }
  }
  return std::nullopt;
}

static Reason wgetGravity(std::span<const ShellWord> args) {
  static constexpr std::string_view kValueLetters = "aABDeIilOoPQRtTUwX";
  for (size_t i = 0; i < args.size(); ++i) {
    const ShellWord& word = args[i];
    if (word.mayBecomeOtherWords()) return kUnknownOptions;
    std::string_view text = word.text;
    if (text.starts_with("--")) {
      for (std::string_view option : {"--post-", "--body-", "--method", "--execute", "--config"}) {
        if (text.starts_with(option)) return kUploads;
      }
      continue;
    }
    if (!isShortCluster(text)) continue;
    for (size_t k = 1; k < text.size(); ++k) {
      if (text[k] == 'e') return kUploads;
      if (!containsLetter(kValueLetters, text[k])) continue;
      if (k + 1 == text.size()) ++i;
      break;
    }
  }
  return std::nullopt;
}

static Reason permissionsGravity(std::span<const ShellWord> args) {
  if (Reason unknown = reasonForUnknownWords(args)) return unknown;
  bool recursive = clusterHas(args, 'R') || hasExactWord(args, {"--recursive"});
  if (!recursive) return std::nullopt;
  for (const ShellWord& word : args) {
    if (!word.text.starts_with("-") && isBroadTarget(word)) return kPermissions;
  }
  return std::nullopt;
}

static Reason crontabGravity(std::span<const ShellWord> args) {
  for (size_t i = 0; i < args.size(); ++i) {
    if (args[i].text == "-u") {
      ++i;
      continue;
    }
    if (args[i].text != "-l") return kCrontab;
  }
  if (!hasExactWord(args, {"-l"})) return kCrontab;
  return std::nullopt;
}

// kill's first option may be a signal ("-9", "-KILL", "-s KILL"); a later "-1", or one
// after "--", is the process id that means every process the user may signal.
static Reason killGravity(std::span<const ShellWord> args) {
  bool signalGiven = false;
  bool onlyIds = false;
  for (size_t i = 0; i < args.size(); ++i) {
    const ShellWord& word = args[i];
    if (word.mayBecomeOtherWords()) return kUnknownOptions;
    const std::string& text = word.text;
    if (onlyIds || !text.starts_with("-")) {
      if (text == "-1") return kKillsAll;
      onlyIds = true;
      continue;
    }
    if (text == "--") {
      onlyIds = true;
    } else if (signalGiven) {
      if (text == "-1") return kKillsAll;
    } else if (text == "-s" || text == "-n") {
      ++i;
      signalGiven = true;
    } else {
      signalGiven = true;
    }
  }
  return std::nullopt;
}

// rsync deletes with --delete and its kin, runs a command of its choice with -e, and
// reaches another computer through any "host:path" or rsync:// operand. Option values
// look like operands, so every operand is tested, not only the last.
static Reason rsyncGravity(std::span<const ShellWord> args) {
  if (Reason unknown = reasonForUnknownWords(args)) return unknown;
  for (const ShellWord& word : args) {
    std::string_view text = word.text;
    if (text.starts_with("--del") || text.starts_with("--remove-source-files")) return kDestination;
    if (text.starts_with("--rsh") || text.starts_with("--rsync-path") ||
        (isShortCluster(text) && containsLetter(text.substr(1), 'e'))) {
      return kRunsLater;
    }
    if (text.starts_with("-")) continue;
    size_t colon = text.find(':');
    bool remote =
        text.starts_with("rsync://") || (colon != std::string_view::npos &&
                                         text.substr(0, colon).find('/') == std::string_view::npos);
    if (remote) return kSends;
  }
  return std::nullopt;
}

static Reason teeGravity(std::span<const ShellWord> args) {
  if (Reason unknown = reasonForUnknownWords(args)) return unknown;
  if (hasExactWord(args, {"--append"}) || clusterHas(args, 'a')) return std::nullopt;
  for (const ShellWord& word : args) {
    if (!word.text.starts_with("-") && !isHarmlessSink(word)) return kOverwrites;
  }
  return std::nullopt;
}

Reason programGravity(std::string_view program, std::span<const ShellWord> args) {
  auto grave = gravePrograms().find(program);
  if (grave != gravePrograms().end()) return grave->second;
  if (program.starts_with("mkfs")) return kWipesDisk;
  if (const CommandOptions* options = commandOptionsFor(program))
    return commandOptionsGravity(*options, args);
  if (program == "git") return gitGravity(args);
  if (program == "awk" || program == "gawk" || program == "mawk" || program == "nawk")
    return awkGravity(args);
  if (program == "dd" || program == "gdd") return ddGravity(args);
  if (program == "curl") return curlGravity(args);
  if (program == "wget") return wgetGravity(args);
  if (program == "chmod" || program == "chown" || program == "chgrp")
    return permissionsGravity(args);
  if (program == "crontab") return crontabGravity(args);
  if (program == "kill") return killGravity(args);
  if (program == "rsync") return rsyncGravity(args);
  if (program == "tee") return teeGravity(args);
  return std::nullopt;
}

}  // namespace zorvane::detail
