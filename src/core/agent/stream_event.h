// The vocabulary every agent session speaks, whichever tool is behind it.
//
//   StreamEvent        one decoded unit of agent output;
//   Outcome            how a turn ended: an answer or a failure, both as text;
//   PermissionRequest  a tool the agent asks leave to use, and the line that answers it;
//   StreamAccumulator  what a turn has seen so far, and the Outcome it comes to;
//   AgentEvent         what a session reports through its one onEvent callback.
//
// Decoders here are total: any bytes, however malformed or long, give a value (or an
// absent request), never an exception.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "core/base/json_value.h"

namespace zorvane {

struct StreamEvent {
  struct Initialized {
    std::string sessionID;
    friend bool operator==(const Initialized&, const Initialized&) = default;
  };
  struct Text {
    std::string text;
    friend bool operator==(const Text&, const Text&) = default;
  };
  struct ToolUse {
    std::string id;
    std::string name;
    JSONObject input;
    friend bool operator==(const ToolUse&, const ToolUse&) = default;
  };
  struct ToolResult {
    std::string id;
    bool isError = false;
    friend bool operator==(const ToolResult&, const ToolResult&) = default;
  };
  struct Result {
    std::string text;
    bool isError = false;
    friend bool operator==(const Result&, const Result&) = default;
  };
  struct Unknown {
    friend bool operator==(const Unknown&, const Unknown&) = default;
  };
  using Value = std::variant<Initialized, Text, ToolUse, ToolResult, Result, Unknown>;

  Value value;

  template <typename T>
  const T* as() const { return std::get_if<T>(&value); }
  friend bool operator==(const StreamEvent&, const StreamEvent&) = default;

  // One line of the agent's stream-JSON output to its events: never empty; `Unknown`
  // for anything that isn't a line this program reads.
  static std::vector<StreamEvent> decode(std::string_view line);
};

struct Outcome {
  enum class Kind { answer, failure };
  Kind kind = Kind::failure;
  std::string text;

  static Outcome answer(std::string text) { return {Kind::answer, std::move(text)}; }
  static Outcome failure(std::string text) { return {Kind::failure, std::move(text)}; }
  bool isAnswer() const { return kind == Kind::answer; }
  // "answer(text)" or "failure(text)": a diagnostic form for logs and the selftest.
  std::string description() const;
  friend bool operator==(const Outcome&, const Outcome&) = default;
};

struct PermissionRequest {
  std::string requestID;
  std::string toolName;
  JSONObject input;
  std::string description;  // empty when the agent gave none

  // A `control_request` line asking to use a tool; absent for every other line.
  static std::optional<PermissionRequest> decode(std::string_view line);
  // The whole `control_response` line answering this request, line feed included.
  std::string response(bool allow) const;
  friend bool operator==(const PermissionRequest&, const PermissionRequest&) = default;
};

// The state of one turn.
struct StreamAccumulator {
  struct LastResult {
    std::string text;
    bool isError = false;
  };
  std::optional<std::string> sessionID;
  std::optional<LastResult> lastResult;

  void feed(const StreamEvent& event);
  // The Outcome of a turn that ended with this exit code and standard-error tail.
  Outcome finish(int exitCode, std::string_view stderrTail) const;
};

// What a session of any agent reports, always on the main queue.
struct AgentEvent {
  struct Stream {
    StreamEvent event;
  };
  struct Permission {
    PermissionRequest request;
  };
  // The turn is over.
  struct Finished {
    Outcome outcome;
  };
  struct Raw {
    std::string line;
  };
  struct Exited {
    int code = 0;
    std::string stderrTail;
  };
  using Value = std::variant<Stream, Permission, Finished, Raw, Exited>;

  Value value;

  template <typename T>
  const T* as() const { return std::get_if<T>(&value); }
};

// The text a denied tool use gives the agent.
inline constexpr std::string_view kDeniedMessage = "The user denied this action.";

}  // namespace zorvane
