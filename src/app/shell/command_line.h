// CommandLine: the process arguments, read once, and the run mode they choose.
//
// Every flag test is an exact, case-sensitive comparison against every element,
// argument 0 included. A value flag ("--agent codex") takes the element after the
// first occurrence of the flag; a flag that is the last element has no value.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/base/expected.h"
#include "core/targets/target.h"

namespace zorvane {

enum class RunMode { toolServer, cloudTest, discover, selftest, application };

class CommandLine {
 public:
  explicit CommandLine(std::vector<std::string> arguments) : arguments_(std::move(arguments)) {}
  CommandLine(int argc, char** argv);

  const std::vector<std::string>& arguments() const { return arguments_; }
  bool has(std::string_view flag) const;
  std::optional<size_t> indexOf(std::string_view flag) const;
  std::optional<std::string> value(std::string_view flag) const;

  // The first of these that holds wins: --mcp, --cloud-test, --discover, --selftest or
  // --selftest-window, else the desktop application.
  RunMode mode() const;

 private:
  std::vector<std::string> arguments_;
};

// What a selftest run works on.
struct SelftestPlan {
  Target target;
  std::string prompt;
  std::string agentID;                 // --agent, "claude" by default
  std::optional<std::string> outPath;  // --out
};

inline constexpr std::string_view kSelftestFolderPrompt =
    "Rename a.txt to b.txt with mv, then reply DONE.";
inline constexpr std::string_view kSelftestWindowPrompt =
    "Take a screenshot and read the UI tree of the window, then describe what is on it in two "
    "sentences. Do not click or type.";

// The target and prompt of a selftest command line: a --selftest-window form with a
// valid window number wins; otherwise the folder after --selftest, which must exist.
// Fails with a one-line reason when neither names something to work on.
[[nodiscard]] Expected<SelftestPlan> makeSelftestPlan(const CommandLine& commandLine);

}  // namespace zorvane
