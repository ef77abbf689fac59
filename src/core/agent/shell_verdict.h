// ShellVerdict: how grave a shell command line is, judged from what the shell will run.
//
// The threat is an agent that wants a destructive or exfiltrating command to pass as an
// ordinary action, which a piece's trust switch lets run without asking. So the line is
// read as the shell reads it (see shell_words.h) and every simple command in it is
// judged after quotes, escapes, paths and leading assignments are taken off its program:
//
//   judgeShellCommand("ls -la");                      // act
//   judgeShellCommand("cd x && \"/bin/r\"m -rf ~");   // irreversible, "deletes files",
//                                                      // evidence "\"/bin/r\"m -rf ~"
//
// A line is `irreversible` when any part of it
//   - holds a command or process substitution, or a quoted "$(" or "`" that a later
//     expansion could run;
//   - runs code given inline (sh -c, python -c, perl -e, node -e, osascript -e, ...) or
//     read from a pipe or here-document (... | sh);
//   - truncates a file with >, >|, &> or tee (anything but /dev/null, /dev/stdout and
//     /dev/stderr); >> only appends and stays an action;
//   - runs a program that deletes, wipes, uploads, sends or runs as another user, or one
//     whose options make it do so (find -delete, git clean, git reset --hard, dd of=,
//     curl -d @file, rsync --delete, chmod -R on the home folder, crontab -r, kill -9 -1);
//   - runs a program or such options that are only known when it runs ($cmd, /bin/r?);
//   - sets a variable that makes other programs run a command (GIT_SSH_COMMAND, PAGER);
//   - cannot be read in full (an open quote, a here-document without its end line).
// Wrappers (env, sudo, nohup, nice, timeout, xargs, command, exec, busybox, ...) are
// looked through, and the texts of eval, trap, alias and watch are read as commands.
// The gravest part wins; everything else is an `act`. The verdict never says `read`.
//
// Pure: no file-system access, no state; may be called from any thread.
#pragma once

#include <string>
#include <string_view>

#include "core/agent/action_policy.h"

namespace zorvane {

struct ShellVerdict {
  ActionClass actionClass = ActionClass::act;
  // Why the line is graver than an action, in a few words ("deletes files"); empty for
  // an action.
  std::string reason;
  // The part of the line the reason is about, as written: the simple command, the
  // substitution, or "" when it is the line as a whole.
  std::string evidence;
};

[[nodiscard]] ShellVerdict judgeShellCommand(std::string_view command);

}  // namespace zorvane
