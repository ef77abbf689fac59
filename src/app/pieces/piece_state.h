// PieceState: everything a piece's bubble shows, as one plain value that its
// PieceController writes and views read. After each change the controller calls
// `onChange` once; a view re-reads what it draws, a test reads the fields directly.
//
// PendingApproval: an approval waiting for the user. It carries what the user must see
// before saying Allow (the class, the summary, the detail of what will run) and the one
// callback that sends the verdict back.
//
// Main queue only.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "core/agent/action_policy.h"
#include "core/agent/approval_text.h"
#include "core/agent/citations.h"
#include "core/base/json_value.h"
#include "core/goo/mood.h"
#include "core/learn/learned_skill.h"
#include "core/registry/session_store.h"

namespace zorvane {

struct PendingApproval {
  std::string toolName;
  ActionClass cls = ActionClass::act;
  std::string summary;                // one line, escaped: the agent's words or the policy's
  std::optional<std::string> detail;  // what will really run, escaped (ApprovalText::detail)
  std::optional<std::string> detailPreview;  // `detail` cut in the middle to fit a card
  std::function<void(bool allow)> respond;
};

// Where learning a skill from a demonstration stands.
struct LearnPhase {
  struct Recording {
    int steps = 0;
    friend bool operator==(const Recording&, const Recording&) = default;
  };
  struct Naming {
    int steps = 0;
    friend bool operator==(const Naming&, const Naming&) = default;
  };
  struct Compiling {
    std::string name;
    friend bool operator==(const Compiling&, const Compiling&) = default;
  };
  struct Done {
    std::string name;
    friend bool operator==(const Done&, const Done&) = default;
  };
  struct Idle {
    friend bool operator==(const Idle&, const Idle&) = default;
  };
  using Value = std::variant<Recording, Naming, Compiling, Done, Idle>;

  Value value = Idle{};

  template <typename T>
  bool is() const { return std::holds_alternative<T>(value); }
  template <typename T>
  const T* as() const { return std::get_if<T>(&value); }
  friend bool operator==(const LearnPhase&, const LearnPhase&) = default;
};

struct PieceState {
  Mood mood = Mood::idle;
  std::string status;                       // the line shown while the agent works
  std::optional<ParsedCitations> answer;    // the last answer
  std::optional<std::string> error;
  std::optional<PendingApproval> pending;
  std::string agentName;
  std::vector<std::string> transcript;      // raw lines of the agent, for peeking
  bool busy = false;
  std::string targetName;
  std::vector<std::string> attached;        // names of attached things
  std::optional<SessionRecord> resumeOffer;
  std::string lastQuestion;
  bool continued = false;                   // the answer shown is from an earlier session
  std::optional<std::string> notice;
  std::vector<std::string> links;           // names of linked pieces
  LearnPhase learn;
  bool canLearn = false;
  std::vector<LearnedSkill> skills;
  std::string draft;                        // the ask field's text
  std::optional<LearnedSkill> armedSkill;   // the skill picked for the next question

  // Called after a change, on the main queue.
  std::function<void()> onChange;
};

}  // namespace zorvane
