#include "core/agent/action_policy.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <filesystem>

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

// A piece bonded to the folder ~/work/foo with a tentacle on the file ~/docs/a.txt and
// one on a browser tab; the home folder is a fresh temporary one.
class ActionPolicyTest : public ::testing::Test {
 protected:
  void expectDecisions(const std::vector<Case>& cases) const {
    for (const Case& c : cases) {
      SCOPED_TRACE(c.tool + " " + encodeCompact(JSONValue(c.input)).substr(0, 80));
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
// Being in scope frees reading only: writes ask everywhere but inside the skill folder.
// An agent runs in its folder and names files relative to it.
TEST_F(ActionPolicyTest, ReadsAreFreeInScopeAndWritesOnlyInTheSkillFolder) {
  testing::TempDir outside;
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(outside.path());
  policy.scope.push_back(Target::folder(URL::fileURL(outside.path(), true)));
  const Decision allow = Decision::allow();
  auto read = [](std::string name) { return ask(ActionClass::read, "Read " + name); };
  auto act = [](std::string summary) { return ask(ActionClass::act, std::move(summary)); };
  expectDecisions({
      {"WebFetch", {{"url", "https://example.org"}}, allow},
      {"Read", {{"file_path", file}}, allow},
      {"Read", {{"file_path", home.path() + "/docs/b.txt"}}, read("b.txt")},
      {"Read", {{"file_path", home.path() + "/docs"}}, read("docs")},
      {"Read", {{"file_path", foo}}, allow},
      {"Grep", {{"path", foo + "/src/deep/er/x.cpp"}}, allow},
      {"Read", {{"file_path", foo + "-bar/x.md"}}, read("x.md")},
      {"Read", {{"file_path", foo + "/../secret.txt"}}, read("secret.txt")},
      {"LS", {{"path", home.path() + "/elsewhere/.//../work/foo/x"}}, allow},
      {"NotebookRead", {{"notebook_path", "/etc/n.ipynb"}}, read("n.ipynb")},
      {"Glob", {{"path", "/etc/"}}, read("etc")},
      {"Read", {{"file_path", scratch + "-old/notes.md"}}, allow},
      {"Read", {{"file_path", skills + "/pdf/SKILL.md"}}, allow},
      {"Read", {{"file_path", skills + "-old/SKILL.md"}}, read("SKILL.md")},
      // A key holding another kind of value counts as absent; the next key is used.
      {"Read", {{"file_path", 7}, {"path", "/etc/hosts"}}, read("hosts")},
      // A tab's file URL is not a folder on disk: it frees nothing.
      {"Read", {{"file_path", "/etc/passwd"}}, read("passwd")},
      {"Edit", {{"file_path", file}}, act("Edit a.txt")},
      {"NotebookEdit", {{"notebook_path", foo + "/n.ipynb"}}, act("Edit n.ipynb")},
      {"Edit", {}, act("Edit a file")},
      {"Write", {{"file_path", scratch + "/x"}}, act("Write x")},
      {"Edit", {{"file_path", skills + "/./pdf/../pdf/SKILL.md"}}, allow},
      {"Write", {{"file_path", skills}}, act("Write skills")},
      {"Write", {{"file_path", skills + "/../settings.json"}}, act("Write settings.json")},
      {"Write", {{"file_path", skills + "x/a.md"}}, act("Write a.md")},
      {"mcp__zorvane__write_file", {{"path", skills + "/pdf/SKILL.md"}}, allow},
      // Without a path the summary has nothing behind the blank; the tool then fails.
      {"mcp__zorvane__write_file", {}, act("Write ")},
      {"Read", {{"file_path", "notes/a.md"}}, allow},
      {"Read", {{"file_path", "../x.md"}}, read("x.md")},
  });
  EXPECT_FALSE(policy.inScope("")) << "an empty path names no file";
  std::filesystem::current_path(before);
}

// Deleting, pushing, posting, superuser and bulk moves are irreversible; other commands
// are actions. Only the exact lower-case spellings count, and only in the right order.
// Inputs far longer than any real command still get the right decision, not a crash.
TEST_F(ActionPolicyTest, ShellCommandsAreGradedByWhatTheyDo) {
  const ActionClass act = ActionClass::act, irreversible = ActionClass::irreversible;
  const std::string fiveMoves = "mv a b; mv c d; mv e f; mv g h; mv i j";
  const std::string filler(500'000, 'a'), blanks(500'000, ' ');
  std::string lines;
  for (int i = 0; i < 50'000; ++i) lines += "set x to 1\n";
  const std::vector<std::pair<std::string, ActionClass>> commands = {
      {"echo rm", act},
      {"echo rm x", irreversible},
      {"farm x", act},
      {"rm -rf build", irreversible},
      {"ls|rm\tx", irreversible},
      {"RM x", act},
      {"git \t push", irreversible},
      {"git pull", act},
      {"curl https://h/api -XDELETE", irreversible},
      {"curl https://h/api \\\n  -d x \\\n  -X PUT", irreversible},
      {"curl -X GET https://h/api", act},
      {"echo -X POST | curl https://h", act},
      {"sudo apt-get install x", irreversible},
      {"echo sudoku x", act},
      {"osascript -e 'tell application \"Mail\" to send m'", irreversible},
      {"osascript -e 'Delete x'", act},
      {"osascript -e 'resend x'", act},
      {"echo delete; osascript -e beep", act},
      {fiveMoves, act},
      {fiveMoves + "; mv k l", irreversible},
      {"for f in *.txt; do mv \"$f\" old/; done", irreversible},
      {"for f in *.txt; do cp \"$f\" old/; done", act},
      {"curl " + filler + " -X POST", irreversible},
      {"curl " + filler + " -X GET", act},
      {"git" + blanks + "push", irreversible},
      {"osascript <<END\n" + lines + "empty trash\nEND", irreversible},
      {filler + " rm" + blanks, irreversible},
  };
  for (const auto& [command, expected] : commands) {
    SCOPED_TRACE(command.substr(0, 40));
    EXPECT_EQ(policy.decide("Bash", {{"command", command}}), ask(expected, "Run a command"));
  }
  EXPECT_EQ(
      policy.decide("mcp__zorvane__run_applescript", {{"source", "move x" + lines + " to trash"}}),
      ask(irreversible, "Run AppleScript that deletes or sends"));
  EXPECT_EQ(policy.decide("Read", {{"file_path", "/etc/" + filler}}),
            ask(ActionClass::read, "Read " + filler));
}

// Looking and talking run unasked. Each tool that changes something is asked with its own
// summary: a shell command with the agent's description (or the tool's "why"), a click
// with whole coordinates truncated toward zero and clamped, typed text cut at 60
// characters, AppleScript graver when it deletes or sends, in any letter case.
TEST_F(ActionPolicyTest, ActionsAreAskedInTheUsersWords) {
  const std::string own = "mcp__zorvane__", unit = "a\u00E9\u65E5\U0001F600";
  std::string hundred, sixty;
  for (int i = 0; i < 25; ++i) hundred += unit;
  for (int i = 0; i < 15; ++i) sixty += unit;
  for (const char* tool :
       {"list_targets", "get_target_info", "screenshot", "read_ui_tree", "browser_read_page",
        "list_pieces", "ask_piece", "tell_piece", "list_schedules"}) {
    EXPECT_EQ(policy.decide(own + tool, {{"x", 1}}), Decision::allow()) << tool;
  }
  auto act = [](std::string summary) { return ask(ActionClass::act, std::move(summary)); };
  const Decision grave = ask(ActionClass::irreversible, "Run AppleScript that deletes or sends");
  const Decision script = act("Run AppleScript");
  const std::string extremes = "Click at (9223372036854775807, -9223372036854775808)";
  expectDecisions({
      {"Bash", {}, act("Run a command")},
      {"Bash",
       {{"command", "rm x"}, {"description", "Clean up"}},
       ask(ActionClass::irreversible, "Clean up")},
      {own + "run_command",
       {{"command", "git push"}, {"why", "Go"}},
       ask(ActionClass::irreversible, "Go")},
      {own + "run_command", {{"command", "ls"}, {"why", "W"}, {"description", "D"}}, act("D")},
      // A description that is present but no string keeps `why` out.
      {own + "run_command", {{"why", "W"}, {"description", nullptr}}, act("Run a command")},
      {own + "click", {{"x", 10.9}, {"y", -3.7}}, act("Click at (10, -3)")},
      {own + "click", {{"x", "5"}, {"y", true}}, act("Click at (0, 0)")},
      {own + "click", {{"x", UINT64_MAX}, {"y", INT64_MIN}}, act(extremes)},
      {own + "click", {{"x", 1e300}, {"y", -1e300}}, act(extremes)},
      {own + "click", {{"x", std::nan("")}, {"y", 4e3}}, act("Click at (0, 4000)")},
      {own + "type_text", {{"text", hundred}}, act("Type \u201C" + sixty + "\u201D")},
      {own + "set_value", {{"value", 12}}, act("Set a field to \u201C\u201D")},
      {own + "press_key", {{"key", "cmd+s"}}, act("Press cmd+s")},
      {own + "press_key", {}, act("Press a key")},
      {own + "press", {{"ref", "0.3.1"}}, act("Press element 0.3.1")},
      {own + "scroll", {{"dy", 3}}, act("Scroll")},
      {own + "create_schedule",
       {{"title", "Tea"}, {"when", "9:00"}},
       act("Schedule \u201CTea\u201D (9:00)")},
      {own + "create_schedule", {}, act("Schedule \u201Ca task\u201D ()")},
      {own + "delete_schedule", {{"schedule", "Tea"}}, act("Delete schedule \u201CTea\u201D")},
      {own + "browser_navigate", {{"url", "https://h.org"}}, act("Open https://h.org")},
      {own + "browser_navigate", {}, act("Open a page")},
      {own + "browser_eval", {{"script", "1"}}, act("Run JavaScript in the page")},
      {own + "frobnicate", {}, act("frobnicate")},
      {"mcp__github__create_issue", {}, act("mcp__github__create_issue")},
      {own + "run_applescript", {{"source", "display dialog \"hi\""}}, script},
      {own + "run_applescript", {{"source", "tell app \"Finder\" to DELETE file 1"}}, grave},
      {own + "run_applescript", {{"source", "Send message 1"}}, grave},
      {own + "run_applescript", {{"source", "Empty Trash"}}, grave},
      {own + "run_applescript", {{"source", "move file \"a\" of desktop to Trash"}}, grave},
      {own + "run_applescript", {{"source", "move file \"a\" to\ntrash"}}, script},
      {own + "run_applescript", {{"source", "tell app \"System Events\" to shut down"}}, grave},
      {own + "run_applescript", {{"source", "Restart"}}, grave},
      {own + "run_applescript", {{"source", "set undeleted to resend"}}, script},
  });
}

// The log form of a decision, and the raw values of the classes.
TEST(ActionPolicy, DecisionsAndClassesHaveTextForms) {
  EXPECT_EQ(Decision::ask(ActionClass::irreversible, "x").description(), "ask(irreversible, x)");
  EXPECT_EQ(Decision::deny("not now").description(), "deny(not now)");
  EXPECT_EQ(Decision::allow().description(), "allow");
  std::vector<std::string_view> texts;
  for (ActionClass actionClass : allCases<ActionClass>()) {
    texts.push_back(rawValue(actionClass));
    EXPECT_EQ(fromRawValue<ActionClass>(rawValue(actionClass)), actionClass);
  }
  EXPECT_EQ(texts, (std::vector<std::string_view>{"read", "draft", "act", "irreversible"}));
  EXPECT_EQ(fromRawValue<ActionClass>("Act"), std::nullopt);
}

}  // namespace
}  // namespace zorvane
