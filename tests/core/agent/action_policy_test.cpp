#include "core/agent/action_policy.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <limits>

#include "support/test_support.h"

namespace zorvane {
namespace {

struct Case {
  std::string tool;
  JSONObject input;
  Decision expected;
};

Decision ask(ActionClass actionClass, std::string summary) {
  return Decision::ask(actionClass, std::move(summary));
}

// Changes the current directory for the life of the object.
class ScopedCurrentDirectory {
 public:
  explicit ScopedCurrentDirectory(const std::string& path) {
    char buffer[4096];
    if (getcwd(buffer, sizeof buffer) != nullptr) old_ = buffer;
    EXPECT_EQ(chdir(path.c_str()), 0) << path;
  }
  ~ScopedCurrentDirectory() {
    if (!old_.empty()) {
      EXPECT_EQ(chdir(old_.c_str()), 0);
    }
  }

 private:
  std::string old_;
};

// A piece bonded to the folder ~/work/foo with a tentacle on the file ~/docs/a.txt and
// one on a browser tab; the home folder is a fresh temporary one.
class ActionPolicyTest : public ::testing::Test {
 protected:
  void expectDecisions(const std::vector<Case>& cases) const {
    for (const Case& c : cases) {
      SCOPED_TRACE(c.tool + " " + encodeCompact(JSONValue(c.input)));
      EXPECT_EQ(policy.decide(c.tool, c.input).description(), c.expected.description());
    }
  }

  testing::TempHome home;
  std::string foo = home.path() + "/work/foo";
  std::string file = home.path() + "/docs/a.txt";
  std::string skills = home.path() + "/.claude/skills";
  std::string scratch = home.path() + "/.local/share/zorvane/scratch";
  ActionPolicy policy{{
      Target::browserTab(BrowserApp::chrome, 3, *URL::parse("file:///etc/passwd"), "x"),
      Target::folder(URL::fileURL(foo, true)),
      Target::file(URL::fileURL(file)),
  }};
};

// Readers are free without a path and on any path in the folder, on the file itself,
// in scratch and skills; a sibling, a look-alike folder or a ".." escape is asked.
TEST_F(ActionPolicyTest, ReadersAreFreeInScopeOnly) {
  expectDecisions({
      {"Read", {}, Decision::allow()},
      {"Read", {{"file_path", file}}, Decision::allow()},
      {"Read", {{"file_path", home.path() + "/docs/b.txt"}}, ask(ActionClass::read, "Read b.txt")},
      {"Read", {{"file_path", home.path() + "/docs"}}, ask(ActionClass::read, "Read docs")},
      {"Read", {{"file_path", foo}}, Decision::allow()},
      {"Read", {{"file_path", foo + "/"}}, Decision::allow()},
      {"Grep", {{"path", foo + "/src/deep/er/x.cpp"}}, Decision::allow()},
      {"Read", {{"file_path", foo + "-bar/x.md"}}, ask(ActionClass::read, "Read x.md")},
      {"Read", {{"file_path", foo + "/../secret.txt"}}, ask(ActionClass::read, "Read secret.txt")},
      {"Read", {{"file_path", foo + "/a/../../foo-bar/k"}}, ask(ActionClass::read, "Read k")},
      {"LS", {{"path", foo + "/./a/.//../b"}}, Decision::allow()},
      {"Read", {{"file_path", home.path() + "/elsewhere/../work/foo/x"}}, Decision::allow()},
      {"NotebookRead", {{"notebook_path", "/etc/n.ipynb"}}, ask(ActionClass::read, "Read n.ipynb")},
      {"Glob", {{"path", "/etc/"}}, ask(ActionClass::read, "Read etc")},
      {"Read", {{"file_path", scratch + "/notes.md"}}, Decision::allow()},
      {"Read", {{"file_path", scratch + "-old/notes.md"}}, Decision::allow()},
      {"Read", {{"file_path", skills + "/pdf/SKILL.md"}}, Decision::allow()},
      {"Read", {{"file_path", skills + "-old/SKILL.md"}}, ask(ActionClass::read, "Read SKILL.md")},
      // A key holding another kind of value counts as absent; the next key is used.
      {"Read", {{"file_path", 7}, {"path", "/etc/hosts"}}, ask(ActionClass::read, "Read hosts")},
      {"Grep", {{"path", JSONValue::array({"/etc"})}}, Decision::allow()},
      // A tab's file URL is not a folder on disk: it frees nothing.
      {"Read", {{"file_path", "/etc/passwd"}}, ask(ActionClass::read, "Read passwd")},
  });
}

// An agent runs in its folder and names files relative to it.
TEST_F(ActionPolicyTest, RelativePathsAreJudgedFromTheCurrentDirectory) {
  testing::TempDir outside;
  ScopedCurrentDirectory inFolder(outside.path());
  policy.scope.push_back(Target::folder(URL::fileURL(outside.path(), true)));
  expectDecisions({
      {"Read", {{"file_path", "notes/a.md"}}, Decision::allow()},
      {"Read", {{"file_path", "./a.md"}}, Decision::allow()},
      {"Read", {{"file_path", "../x.md"}}, ask(ActionClass::read, "Read x.md")},
  });
  EXPECT_FALSE(policy.inScope("")) << "an empty path names no file";
}

// Being in scope frees reading only: writes ask everywhere but inside the skill folder.
TEST_F(ActionPolicyTest, WritesAreFreeOnlyInTheSkillFolder) {
  expectDecisions({
      {"Write", {{"file_path", foo + "/a.md"}}, ask(ActionClass::act, "Write a.md")},
      {"Edit", {{"file_path", file}}, ask(ActionClass::act, "Edit a.txt")},
      {"MultiEdit", {{"file_path", foo + "/b.md"}}, ask(ActionClass::act, "Edit b.md")},
      {"NotebookEdit",
       {{"notebook_path", foo + "/n.ipynb"}},
       ask(ActionClass::act, "Edit n.ipynb")},
      {"Edit", {}, ask(ActionClass::act, "Edit a file")},
      {"Write", {{"file_path", 3}}, ask(ActionClass::act, "Write a file")},
      {"Write", {{"file_path", scratch + "/x"}}, ask(ActionClass::act, "Write x")},
      {"Write", {{"file_path", skills + "/pdf/SKILL.md"}}, Decision::allow()},
      {"Edit", {{"file_path", skills + "/./pdf/../pdf/SKILL.md"}}, Decision::allow()},
      {"Write", {{"file_path", skills}}, ask(ActionClass::act, "Write skills")},
      {"Write",
       {{"file_path", skills + "/../settings.json"}},
       ask(ActionClass::act, "Write settings.json")},
      {"Write", {{"file_path", skills + "x/a.md"}}, ask(ActionClass::act, "Write a.md")},
      {"mcp__zorvane__write_file", {{"path", skills + "/pdf/SKILL.md"}}, Decision::allow()},
      {"mcp__zorvane__write_file", {{"path", foo + "/a.md"}}, ask(ActionClass::act, "Write a.md")},
      // Without a path the summary has nothing behind the blank; the tool then fails.
      {"mcp__zorvane__write_file", {}, ask(ActionClass::act, "Write ")},
      {"mcp__zorvane__write_file",
       {{"file_path", skills + "/a/b"}},
       ask(ActionClass::act, "Write ")},
  });
  EXPECT_TRUE(ActionPolicy::isSkillPath(skills + "/a/b"));
  EXPECT_FALSE(ActionPolicy::isSkillPath(skills)) << "the folder itself is no skill path";
  EXPECT_FALSE(ActionPolicy::isSkillPath(skills + "/"));
  EXPECT_FALSE(ActionPolicy::isSkillPath(""));
}

// Deleting, pushing, posting, superuser and bulk moves are irreversible; other commands
// are actions. Only the exact lower-case spellings count.
TEST_F(ActionPolicyTest, ShellCommandsAreGradedByWhatTheyDo) {
  struct Command {
    std::string command;
    ActionClass expected;
  };
  const std::string fiveMoves = "mv a b; mv c d; mv e f; mv g h; mv i j; ";
  const std::vector<Command> commands = {
      {"ls -la", ActionClass::act},
      {"echo rm", ActionClass::act},
      {"echo rm x", ActionClass::irreversible},
      {"farm x", ActionClass::act},
      {"rm -rf build", ActionClass::irreversible},
      {"make;rm x", ActionClass::irreversible},
      {"make&&rm x", ActionClass::irreversible},
      {"ls|rm\tx", ActionClass::irreversible},
      {"RM x", ActionClass::act},
      {"git push origin main", ActionClass::irreversible},
      {"git \t push", ActionClass::irreversible},
      {"GIT PUSH", ActionClass::act},
      {"git pull", ActionClass::act},
      {"curl -X POST https://h/api", ActionClass::irreversible},
      {"curl https://h/api -XDELETE", ActionClass::irreversible},
      {"curl https://h/api \\\n  -d x \\\n  -X PUT", ActionClass::irreversible},
      {"curl -X GET https://h/api", ActionClass::act},
      {"curl -x post https://h/api", ActionClass::act},
      {"echo -X POST | curl https://h", ActionClass::act},
      {"sudo apt-get install x", ActionClass::irreversible},
      {"cd /; shutdown -h now", ActionClass::irreversible},
      {"echo sudoku x", ActionClass::act},
      {"mkfs /dev/sdb1", ActionClass::irreversible},
      {"osascript -e 'tell application \"Mail\" to send m'", ActionClass::irreversible},
      {"osascript <<END\ntell application \"Finder\"\ndelete item 1\nEND",
       ActionClass::irreversible},
      {"osascript -e 'Delete x'", ActionClass::act},
      {"osascript -e 'resend x'", ActionClass::act},
      {"echo delete; osascript -e beep", ActionClass::act},
      {"mv a b; mv c d; mv e f; mv g h; mv i j", ActionClass::act},
      {fiveMoves + "mv k l", ActionClass::irreversible},
      {"for f in *.txt; do mv \"$f\" old/; done", ActionClass::irreversible},
      {"for f in *.txt; do cp \"$f\" old/; done", ActionClass::act},
  };
  for (const Command& c : commands) {
    SCOPED_TRACE(c.command);
    EXPECT_EQ(policy.decide("Bash", {{"command", c.command}}), ask(c.expected, "Run a command"));
  }
}

// The agent's description is the summary; anything but a string falls back.
TEST_F(ActionPolicyTest, ShellSummaryComesFromTheDescriptionOrWhy) {
  expectDecisions({
      {"Bash", {}, ask(ActionClass::act, "Run a command")},
      {"Bash", {{"command", 5}}, ask(ActionClass::act, "Run a command")},
      {"Bash",
       {{"command", "rm x"}, {"description", "Clean up"}},
       ask(ActionClass::irreversible, "Clean up")},
      {"Bash",
       {{"command", "ls"}, {"description", JSONValue::object()}},
       ask(ActionClass::act, "Run a command")},
      {"mcp__zorvane__run_command",
       {{"command", "ls"}, {"why", "List the files"}},
       ask(ActionClass::act, "List the files")},
      {"mcp__zorvane__run_command",
       {{"command", "git push"}, {"why", "Publish"}},
       ask(ActionClass::irreversible, "Publish")},
      {"mcp__zorvane__run_command",
       {{"command", "ls"}, {"why", "W"}, {"description", "D"}},
       ask(ActionClass::act, "D")},
      {"mcp__zorvane__run_command", {{"command", "ls"}}, ask(ActionClass::act, "Run a command")},
      // A description that is present but no string keeps `why` out.
      {"mcp__zorvane__run_command",
       {{"command", "ls"}, {"why", "W"}, {"description", nullptr}},
       ask(ActionClass::act, "Run a command")},
  });
}

// Inputs far longer than any real command still get the right decision, not a crash.
TEST_F(ActionPolicyTest, HugeInputsGetADecision) {
  const std::string filler(500'000, 'a');
  const std::string lines = [] {
    std::string text;
    for (int i = 0; i < 50'000; ++i) text += "set x to 1\n";
    return text;
  }();
  const std::string blanks(500'000, ' ');
  struct Command {
    std::string command;
    ActionClass expected;
  };
  const std::vector<Command> commands = {
      {"curl " + filler + " -X POST", ActionClass::irreversible},
      {"curl " + filler + " -X GET", ActionClass::act},
      {"git" + blanks + "push", ActionClass::irreversible},
      {"curl -X" + blanks + "DELETE", ActionClass::irreversible},
      {"osascript <<END\n" + lines + "empty trash\nEND", ActionClass::irreversible},
      {"osascript <<END\n" + lines + "END", ActionClass::act},
      {filler + " rm" + blanks, ActionClass::irreversible},
  };
  for (const Command& c : commands) {
    SCOPED_TRACE(c.command.substr(0, 20));
    EXPECT_EQ(policy.decide("Bash", {{"command", c.command}}), ask(c.expected, "Run a command"));
  }
  EXPECT_EQ(
      policy.decide("mcp__zorvane__run_applescript", {{"source", "move x" + lines + " to trash"}}),
      ask(ActionClass::irreversible, "Run AppleScript that deletes or sends"));
  EXPECT_EQ(policy.decide("Read", {{"file_path", "/etc/" + filler}}),
            ask(ActionClass::read, "Read " + filler));
}

// Each of this program's tools that changes something is asked with its own summary.
TEST_F(ActionPolicyTest, ControlToolsAreAskedInTheUsersWords) {
  const std::string cycle[] = {"a", "\u00E9", "\u65E5", "\U0001F600"};
  std::string hundred, sixty;
  for (int i = 0; i < 100; ++i) {
    hundred += cycle[i % 4];
    if (i < 60) sixty += cycle[i % 4];
  }
  auto act = [](std::string summary) { return ask(ActionClass::act, std::move(summary)); };
  expectDecisions({
      {"mcp__zorvane__type_text", {{"text", hundred}}, act("Type \u201C" + sixty + "\u201D")},
      {"mcp__zorvane__type_text", {{"text", "hi"}}, act("Type \u201Chi\u201D")},
      {"mcp__zorvane__type_text", {}, act("Type \u201C\u201D")},
      {"mcp__zorvane__set_value",
       {{"value", hundred}},
       act("Set a field to \u201C" + sixty + "\u201D")},
      {"mcp__zorvane__set_value", {{"value", 12}}, act("Set a field to \u201C\u201D")},
      {"mcp__zorvane__press_key", {{"key", "cmd+s"}}, act("Press cmd+s")},
      {"mcp__zorvane__press_key", {}, act("Press a key")},
      {"mcp__zorvane__press", {{"ref", "0.3.1"}}, act("Press element 0.3.1")},
      {"mcp__zorvane__press", {}, act("Press element ")},
      {"mcp__zorvane__scroll", {{"dy", 3}}, act("Scroll")},
      {"mcp__zorvane__create_schedule",
       {{"title", "Clock in"}, {"when", "weekdays 9:00"}},
       act("Schedule \u201CClock in\u201D (weekdays 9:00)")},
      {"mcp__zorvane__create_schedule", {}, act("Schedule \u201Ca task\u201D ()")},
      {"mcp__zorvane__delete_schedule",
       {{"schedule", "Clock in"}},
       act("Delete schedule \u201CClock in\u201D")},
      {"mcp__zorvane__browser_navigate",
       {{"url", "https://example.org"}},
       act("Open https://example.org")},
      {"mcp__zorvane__browser_navigate", {}, act("Open a page")},
      {"mcp__zorvane__browser_eval", {{"script", "1"}}, act("Run JavaScript in the page")},
      {"mcp__zorvane__frobnicate", {}, act("frobnicate")},
      {"mcp__zorvane__", {}, act("")},
      {"mcp__github__create_issue", {}, act("mcp__github__create_issue")},
      {"Task", {}, act("Task")},
  });
}

// Coordinates are truncated toward zero; anything else is 0, and extremes are clamped.
TEST_F(ActionPolicyTest, ClickSummaryShowsWholeCoordinates) {
  const uint64_t huge = std::numeric_limits<uint64_t>::max();
  auto click = [](std::string xy) { return ask(ActionClass::act, "Click at (" + xy + ")"); };
  expectDecisions({
      {"mcp__zorvane__click", {{"x", 10}, {"y", 20}}, click("10, 20")},
      {"mcp__zorvane__click", {{"x", 10.9}, {"y", -3.7}}, click("10, -3")},
      {"mcp__zorvane__click", {{"x", -0.5}, {"y", 0.99}}, click("0, 0")},
      {"mcp__zorvane__click", {}, click("0, 0")},
      {"mcp__zorvane__click", {{"x", "5"}, {"y", true}}, click("0, 0")},
      {"mcp__zorvane__click",
       {{"x", huge}, {"y", -9223372036854775807LL - 1}},
       click("9223372036854775807, -9223372036854775808")},
      {"mcp__zorvane__click",
       {{"x", 1e300}, {"y", -1e300}},
       click("9223372036854775807, -9223372036854775808")},
      {"mcp__zorvane__click",
       {{"x", std::numeric_limits<double>::quiet_NaN()}, {"y", 4e3}},
       click("0, 4000")},
  });
}

// The looking and talking tools run unasked; AppleScript asks, graver when it deletes or
// sends, in any letter case.
TEST_F(ActionPolicyTest, ReadOnlyToolsRunAndScriptsAreGraded) {
  for (const char* tool :
       {"list_targets", "get_target_info", "screenshot", "read_ui_tree", "browser_read_page",
        "list_pieces", "ask_piece", "tell_piece", "list_schedules"}) {
    SCOPED_TRACE(tool);
    EXPECT_EQ(policy.decide(std::string("mcp__zorvane__") + tool, {}), Decision::allow());
    EXPECT_EQ(policy.decideControl(tool, {{"x", 1}}), Decision::allow());
  }
  const Decision grave = ask(ActionClass::irreversible, "Run AppleScript that deletes or sends");
  const Decision plain = ask(ActionClass::act, "Run AppleScript");
  const std::vector<std::pair<std::string, Decision>> scripts = {
      {"display dialog \"hi\"", plain},
      {"", plain},
      {"tell application \"Finder\" to DELETE file 1", grave},
      {"Send message 1", grave},
      {"Empty Trash", grave},
      {"move file \"a\" of desktop to Trash", grave},
      {"move file \"a\" to\ntrash", plain},
      {"move file \"a\"\nto folder \"b\"\n-- back to trash", grave},
      {"tell application \"System Events\" to shut down", grave},
      {"shutdown", grave},
      {"Restart", grave},
      {"set undeleted to resend", plain},
  };
  for (const auto& [source, expected] : scripts) {
    SCOPED_TRACE(source);
    EXPECT_EQ(policy.decide("mcp__zorvane__run_applescript", {{"source", source}}), expected);
  }
  EXPECT_EQ(policy.decide("mcp__zorvane__run_applescript", {{"source", 1}}), plain);
}

// The log form of a decision, and the raw values of the classes.
TEST(ActionPolicy, DecisionsAndClassesHaveTextForms) {
  EXPECT_EQ(Decision::ask(ActionClass::act, "Run a command").description(),
            "ask(act, Run a command)");
  EXPECT_EQ(Decision::ask(ActionClass::irreversible, "x").description(), "ask(irreversible, x)");
  EXPECT_EQ(Decision::deny("not now").description(), "deny(not now)");
  EXPECT_EQ(Decision::allow().description(), "allow");
  EXPECT_NE(Decision::ask(ActionClass::act, "x"), Decision::ask(ActionClass::read, "x"));
  EXPECT_NE(Decision::deny(""), Decision::allow());
  for (const char* text : {"read", "draft", "act", "irreversible"}) {
    SCOPED_TRACE(text);
    std::optional<ActionClass> actionClass = fromRawValue<ActionClass>(text);
    ASSERT_TRUE(actionClass);
    EXPECT_EQ(rawValue(*actionClass), text);
  }
  EXPECT_FALSE(fromRawValue<ActionClass>("Act"));
  EXPECT_EQ(ActionPolicy::readTools(),
            (std::set<std::string>{"Read", "Glob", "Grep", "LS", "WebFetch", "WebSearch",
                                   "TodoWrite", "NotebookRead"}));
}

}  // namespace
}  // namespace zorvane
