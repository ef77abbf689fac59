// ActionPolicy: what an agent may do without asking the user.
//
// Every tool call an agent makes passes `decide` before it runs. Given the tool's name
// and its JSON input, the answer is one of three: `allow` (run it silently), `ask` with
// a class and a one-line summary in the user's words (the caller shows an approval
// card), or `deny`. Tools of the agent's own harness arrive under their own names
// ("Read", "Bash", ...); this program's tools arrive as "mcp__zorvane__" + their name.
//
//   ActionPolicy policy{{Target::folder(URL::fileURL("/home/u/notes", true))}};
//   policy.decide("Read", {{"file_path", "/home/u/notes/a.md"}});  // allow
//   policy.decide("Bash", {{"command", "rm -r build"}, {"description", "Tidy"}});
//       // ask(irreversible, Run “rm -r build” (deletes files) — Tidy)
//
// Reading is free inside `scope` (the targets a piece is bonded to), the scratch folder
// and the skill folder (~/.claude/skills/...); writing is free only in the skill folder;
// the shell and every tool that drives a window always ask. A piece's trust switch lets
// `act` pass unasked but never `irreversible`, so the shell is judged with care: the
// command is read as the shell reads it and every part of it is judged (see
// shell_verdict.h), and a command that deletes, overwrites, uploads, pushes, runs code
// given inline or cannot be read in full is `irreversible`. A shell command's summary
// quotes the command itself; the agent's description only follows it.
//
// Paths are judged where they lead: symbolic links are resolved, and a relative path,
// which the agent's harness would take from a working folder of its own, is never free.
//
// The policy holds no state beyond `scope` and makes no desktop call: every function is
// pure apart from looking up paths on disk and reading the home folder, and may be
// called from any thread. Every input, however large or oddly typed, gets a decision;
// nothing here throws.
#pragma once

#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "core/base/json_value.h"
#include "core/targets/target.h"

namespace zorvane {

// How grave an action is, from harmless to grave. The policy itself never answers
// `draft`; it is part of the vocabulary the approval cards display.
enum class ActionClass { read, draft, act, irreversible };

// "read", "draft", "act" or "irreversible".
[[nodiscard]] std::string_view rawValue(ActionClass actionClass);

template <>
std::span<const ActionClass> allCases<ActionClass>();
template <>
std::optional<ActionClass> fromRawValue<ActionClass>(std::string_view rawValue);

// The policy's answer for one tool call.
class Decision {
 public:
  // The user is to be asked; `summary` is one line in the user's words.
  struct Ask {
    ActionClass actionClass;
    std::string summary;
    friend bool operator==(const Ask&, const Ask&) = default;
  };
  // Refused without asking; `reason` is the text logged for it.
  struct Deny {
    std::string reason;
    friend bool operator==(const Deny&, const Deny&) = default;
  };
  // Run without asking.
  struct Allow {
    friend bool operator==(const Allow&, const Allow&) = default;
  };
  using Value = std::variant<Ask, Deny, Allow>;

  enum class Kind { ask, deny, allow };

  static Decision ask(ActionClass actionClass, std::string summary) {
    return Decision(Ask{actionClass, std::move(summary)});
  }
  static Decision deny(std::string reason) { return Decision(Deny{std::move(reason)}); }
  static Decision allow() { return Decision(Allow{}); }

  [[nodiscard]] const Value& value() const { return value_; }
  [[nodiscard]] Kind kind() const { return static_cast<Kind>(value_.index()); }
  [[nodiscard]] bool isAllow() const { return std::holds_alternative<Allow>(value_); }
  // The payload of an `ask` or a `deny`; null for the other cases.
  [[nodiscard]] const Ask* asAsk() const { return std::get_if<Ask>(&value_); }
  [[nodiscard]] const Deny* asDeny() const { return std::get_if<Deny>(&value_); }

  // One line for logs: "ask(act, Run a command)", "deny(<reason>)" or "allow".
  [[nodiscard]] std::string description() const;

  friend bool operator==(const Decision&, const Decision&) = default;

 private:
  explicit Decision(Value value) : value_(std::move(value)) {}
  Value value_;
};

struct ActionPolicy {
  // The targets on which reading is free: a piece's own target and its tentacles'.
  // Only folders and files count; tabs and windows free nothing.
  std::vector<Target> scope;

  // The entry point, for any tool under the name the agent uses.
  [[nodiscard]] Decision decide(std::string_view tool, const JSONObject& input) const;

  // The same for this program's own tools, named without the "mcp__zorvane__" prefix.
  [[nodiscard]] Decision decideControl(std::string_view tool, const JSONObject& input) const;

  // Whether reading `path` is free: it lies in a file or folder of `scope`, in the
  // scratch folder, or in the skill folder. Both sides are resolved as the kernel opens
  // them: symbolic links in the longest existing prefix are followed, the rest is
  // standardised as text. A relative or empty path is never in scope.
  [[nodiscard]] bool inScope(std::string_view path) const;

  // Whether `path`, absolute and resolved as above, lies below ~/.claude/skills. The
  // folder itself is not a skill path, nor is a relative path.
  [[nodiscard]] static bool isSkillPath(std::string_view path);

  // The harness's tools that only read: "Read", "Glob", "Grep", "LS", "WebFetch",
  // "WebSearch", "TodoWrite", "NotebookRead".
  [[nodiscard]] static const std::set<std::string>& readTools();
};

}  // namespace zorvane
