#include "core/agent/friendly_status.h"

#include <gtest/gtest.h>

namespace zorvane {
namespace {

// With and without this program's prefix, the user reads the same few words and never a
// tool's name or a command. The file is the last path component of the first of
// file_path, path and notebook_path that is text; a piece named by a number is "another
// agent"; another server's tool or an unknown one is "Figuring it out".
TEST(FriendlyStatus, DescribesToolsInTheUsersWords) {
  struct Case {
    std::string tool;
    JSONObject input;
    std::string text;
  };
  const std::vector<Case> cases = {
      {"Read", {{"file_path", "/home/u/docs/report.pdf"}}, "Reading report.pdf"},
      {"Read", {{"path", 7}, {"notebook_path", "/a/analysis.ipynb"}}, "Reading analysis.ipynb"},
      {"Read", {{"file_path", "/a/first.txt"}, {"path", "/a/second.txt"}}, "Reading first.txt"},
      {"Read", {{"file_path", "/a/folder/"}}, "Reading folder"},
      {"Read", {{"file_path", "plain.txt"}}, "Reading plain.txt"},
      {"Read", {{"file_path", "/"}}, "Reading"},
      {"Write", {{"file_path", "/tmp/out/notes.md"}}, "Writing notes.md"},
      {"Write", {{"content", "x"}}, "Writing"},
      {"Edit", {{"path", "src/main.cpp"}}, "Editing main.cpp"},
      {"Glob", {{"pattern", "*.md"}}, "Looking around"},
      {"Bash", {{"command", "rm -rf /"}}, "Working on it"},
      {"screenshot", {}, "Looking at the screen"},
      {"ask_piece", {{"piece", "Budget sheet"}}, "Asking Budget sheet"},
      {"ask_piece", {{"piece", 2}}, "Asking another agent"},
      {"tell_piece", {{"piece", "-1"}}, "Messaging another agent"},
      {"tell_piece", {{"piece", "2b"}}, "Messaging 2b"},
      {"NotebookEdit", {{"notebook_path", "/a/b.ipynb"}}, "Figuring it out"},
      {"mcp__other__screenshot", {}, "Figuring it out"},
      {"read", {}, "Figuring it out"},
  };
  for (const Case& c : cases) {
    for (std::string prefix : {"", "mcp__zorvane__"}) {
      SCOPED_TRACE(prefix + c.tool + " " + encodeCompact(JSONValue(c.input)));
      EXPECT_EQ(FriendlyStatus::describe(prefix + c.tool, c.input), c.text);
    }
  }
}

}  // namespace
}  // namespace zorvane
