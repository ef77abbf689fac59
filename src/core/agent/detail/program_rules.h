// Program rules: which programs are irreversible by their name or by their own
// arguments, for judgeShellCommand (shell_verdict.h).
//
// A rule sees one program, already found behind quotes, paths and wrappers, and its
// arguments as the shell passes them. It answers with the reason the call is
// irreversible, or nothing. Programs that run other commands (wrappers, interpreters,
// eval, find -exec) are judged by the caller, which reads the commands they run.
//
// An argument that may turn into other words when it runs ($x unquoted, "$x" or a
// glob at its start, see ShellWord::mayBecomeOtherWords) could be any option, so a
// program whose options decide is irreversible with such an argument.
//
// Private to src/core/agent. Pure apart from reading the home folder's path.
#pragma once

#include <optional>
#include <span>
#include <string_view>

#include "core/agent/shell_words.h"

namespace zorvane::detail {

using Reason = std::optional<std::string_view>;

// The reasons, as the approval card shows them behind the command.
inline constexpr std::string_view kDeletes = "deletes files";
inline constexpr std::string_view kEmpties = "empties files";
inline constexpr std::string_view kOverwrites = "overwrites a file";
inline constexpr std::string_view kWipesDisk = "erases a disk";
inline constexpr std::string_view kPowersOff = "turns the computer off";
inline constexpr std::string_view kOtherUser = "runs as another user";
inline constexpr std::string_view kSends = "sends data to another computer";
inline constexpr std::string_view kUploads = "uploads data";
inline constexpr std::string_view kRunsLater = "runs commands later or elsewhere";
inline constexpr std::string_view kKillsAll = "stops every process";
inline constexpr std::string_view kInlineCode = "runs code given inline";
inline constexpr std::string_view kPipedCode = "runs code from its input";
inline constexpr std::string_view kSubstitution = "runs a command inside another";
inline constexpr std::string_view kStoredCode = "holds a command for a later expansion";
inline constexpr std::string_view kUnknownProgram = "runs a program only known when it runs";
inline constexpr std::string_view kUnknownOptions = "has options only known when it runs";
inline constexpr std::string_view kGlobCode = "uses a glob that can run code";
inline constexpr std::string_view kRawWrite = "writes raw data to a file or device";
inline constexpr std::string_view kDiscards = "discards uncommitted changes";
inline constexpr std::string_view kUntracked = "deletes untracked files";
inline constexpr std::string_view kPushes = "pushes to a remote";
inline constexpr std::string_view kHistory = "deletes history, branches or stashed work";
inline constexpr std::string_view kGitRuns = "makes git run a command";
inline constexpr std::string_view kPermissions = "changes permissions across the home folder";
inline constexpr std::string_view kCrontab = "replaces the scheduled commands";
inline constexpr std::string_view kDestination = "deletes files at the destination";
inline constexpr std::string_view kCommandVariable = "sets a variable that runs commands";
inline constexpr std::string_view kOptionCommand = "runs a command named in its options";
inline constexpr std::string_view kUnreadable = "could not be read in full";
inline constexpr std::string_view kTooDeep = "nests commands too deeply";

// Why running `program` (a bare name such as "git") with `args` is irreversible, or
// nothing when no rule here makes it so.
[[nodiscard]] Reason programGravity(std::string_view program, std::span<const ShellWord> args);

// Whether `set` holds `c`.
[[nodiscard]] inline bool containsLetter(std::string_view set, char c) {
  return set.find(c) != std::string_view::npos;
}

// "-x" style: one dash and at least one more character, not "--".
[[nodiscard]] inline bool isShortCluster(std::string_view text) {
  return text.size() >= 2 && text[0] == '-' && text[1] != '-';
}

// /dev/null, /dev/stdout and /dev/stderr: writing there changes no file.
[[nodiscard]] bool isHarmlessSink(const ShellWord& word);

}  // namespace zorvane::detail
