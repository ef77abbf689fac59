// AgentKind: one row of the catalogue of agent command-line tools this program knows.
// InstalledAgent: a kind found on this machine, with the full path of its tool.
// AgentModels: the model names offered for each kind.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zorvane {

struct AgentKind {
  std::string id;           // stable key: records, settings and the --agent flag
  std::string displayName;  // what the user reads
  std::vector<std::string> binaryNames;  // file names to look for, preferred first
  bool isDriveable = false;              // the program can run a session on it
  std::string installHint;               // the install command shown when it's missing

  friend bool operator==(const AgentKind&, const AgentKind&) = default;

  // Every tool of the catalogue, in catalogue order (also the order of discovery).
  static const std::vector<AgentKind>& all();
  // The on-device model; never part of all().
  static const AgentKind& apple();
  static const AgentKind& claude();
  static const AgentKind& codex();
  static const AgentKind& pi();
  // The kind with this id, the on-device one included.
  static std::optional<AgentKind> withID(std::string_view id);
};

struct InstalledAgent {
  AgentKind kind;
  std::string path;  // the tool's full path; "on-device" for the on-device model

  friend bool operator==(const InstalledAgent&, const InstalledAgent&) = default;
};

namespace AgentModels {
// Model names offered for an agent id; none for kinds without suggestions.
std::vector<std::string> suggestions(std::string_view agentID);
}  // namespace AgentModels

}  // namespace zorvane
