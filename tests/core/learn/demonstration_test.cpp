#include "core/learn/demonstration.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace zorvane {

void PrintTo(const DemoStep& step, std::ostream* out) {
  *out << encodeCompact(step.encode());
}

namespace {

RawEvent click(double x, double y, double at, bool right = false) {
  return {RawEvent::Click{x, y, right, {}, {}, at}};
}

RawEvent typed(std::string text, double at, std::vector<std::string> modifiers = {},
               bool secure = false) {
  return {RawEvent::Key{std::move(text), std::nullopt, std::move(modifiers), secure, at}};
}

RawEvent pressed(std::string name, double at, std::vector<std::string> modifiers = {}) {
  return {RawEvent::Key{std::nullopt, std::move(name), std::move(modifiers), false, at}};
}

RawEvent scrolled(double dy, double at, double dx = 0) {
  return {RawEvent::Scroll{dx, dy, at}};
}

std::vector<std::string> linesOf(const std::vector<DemoStep>& steps) {
  std::vector<std::string> lines;
  for (const DemoStep& step : steps) lines.push_back(step.line());
  return lines;
}

struct Case {
  std::string what;
  std::vector<RawEvent> events;
  std::vector<std::string> lines;
};

void expectLines(const std::vector<Case>& cases) {
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_EQ(linesOf(Demonstration::compile(c.events)), c.lines);
  }
}

// Clicks: two quick left clicks in one place are a double click; a right click never
// folds; a third quick click starts afresh.
TEST(Demonstration, FoldsQuickClicksIntoDoubleClicks) {
  expectLines({
      {"nothing", {}, {}},
      {"0.3 s and 2 points apart",
       {click(10, 10, 1.0), click(12, 8, 1.3)},
       {"Double-click here (at 10,10)"}},
      {"0.5 s apart",
       {click(10, 10, 1.0), click(10, 10, 1.5)},
       {"Click here (at 10,10)", "Click here (at 10,10)"}},
      {"10 points apart",
       {click(10, 10, 1.0), click(20, 10, 1.3)},
       {"Click here (at 10,10)", "Click here (at 20,10)"}},
      {"right, then left",
       {click(10, 10, 1.0, true), click(10, 10, 1.1)},
       {"Right-click here (at 10,10)", "Click here (at 10,10)"}},
      {"three quick clicks",
       {click(5, 5, 1.0), click(5, 5, 1.1), click(5, 5, 1.2)},
       {"Double-click here (at 5,5)", "Click here (at 5,5)"}},
      {"a scroll between two clicks",
       {click(5, 5, 1.0), scrolled(1, 1.1), click(5, 5, 1.2)},
       {"Click here (at 5,5)", "Scroll down", "Click here (at 5,5)"}},
  });
}

// Typing: characters within 1.5 s of the previous event make one step; shift is
// typing, other modifiers make a key step; passwords are one placeholder.
TEST(Demonstration, JoinsTypingIntoOneStep) {
  expectLines({
      {"within 1.5 s", {typed("h", 1.0), typed("i", 2.0)}, {"Type “hi”"}},
      {"2 s apart", {typed("h", 1.0), typed("i", 3.0)}, {"Type “h”", "Type “i”"}},
      {"shift is typing", {typed("H", 0, {"shift"}), typed("i", 0.1)}, {"Type “Hi”"}},
      {"cmd is a key", {typed("s", 0, {"cmd"})}, {"Press ⌘+s"}},
      {"a key between two runs",
       {typed("a", 0), typed("c", 0.1, {"control"}), typed("b", 0.2)},
       {"Type “a”", "Press ⌃+c", "Type “b”"}},
      {"name before text",
       {RawEvent{RawEvent::Key{"\t", "tab", {"option"}, false, 0}}},
       {"Press ⌥+tab"}},
      {"modifiers keep their order",
       {pressed("k", 0, {"control", "option", "shift", "cmd", "fn"})},
       {"Press ⌃+⌥+⌘+fn+k"}},
      {"a key with nothing", {RawEvent{RawEvent::Key{}}}, {"Press ?"}},
      {"three secure characters",
       {typed("p", 0, {}, true), typed("w", 0.1, {}, true), typed("d", 0.2, {}, true)},
       {"Type “{{secret}}”"}},
      {"a plain character after a password",
       {typed("p", 0, {}, true), typed("w", 0.1, {}, true), typed("!", 0.2)},
       {"Type “{{secret}}!”"}},
      {"events out of order", {typed("b", 1.0), typed("c", 1.2), typed("a", 0.5)}, {"Type “abc”"}},
      {"equal times keep their order",
       {typed("x", 1.0), typed("y", 1.0), typed("z", 1.0)},
       {"Type “xyz”"}},
  });
}

// Delete right after typing takes the typo back, and the step with it when it empties;
// it never eats a placeholder.
TEST(Demonstration, DeleteTakesTyposBack) {
  expectLines({
      {"hi, delete", {typed("h", 0), typed("i", 0.1), pressed("delete", 0.2)}, {"Type “h”"}},
      {"and again",
       {typed("h", 0), typed("i", 0.1), pressed("delete", 0.2), pressed("delete", 0.3)},
       {}},
      {"and once more",
       {typed("h", 0), typed("i", 0.1), pressed("delete", 0.2), pressed("delete", 0.3),
        pressed("delete", 0.4)},
       {"Press delete"}},
      {"after a password",
       {typed("p", 0, {}, true), pressed("delete", 0.1)},
       {"Type “{{secret}}”", "Press delete"}},
      {"too late", {typed("ab", 0), pressed("delete", 2.0)}, {"Type “ab”", "Press delete"}},
      {"a whole character",
       {typed("caf", 0), typed("é", 0.1), pressed("delete", 0.2)},
       {"Type “caf”"}},
  });
}

// Scrolls in one direction make one step, however many; dx has no say.
TEST(Demonstration, FoldsScrollsByDirection) {
  expectLines({
      {"no dy is up", {scrolled(0, 0, 5)}, {"Scroll up"}},
      {"far apart still one", {scrolled(1, 0), scrolled(1, 60)}, {"Scroll down"}},
  });
}

// Odd numbers never crash the folding: not-a-number and infinite times and points.
TEST(Demonstration, TakesAnyNumbers) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double inf = std::numeric_limits<double>::infinity();
  std::vector<RawEvent> events = {click(nan, inf, nan),       typed("a", inf),
                                  click(1e300, -1e300, -inf), typed("b", nan),
                                  scrolled(nan, 1),           click(-0.9, 5.99, 0)};
  std::vector<DemoStep> steps = Demonstration::compile(events);
  EXPECT_EQ(linesOf(steps),
            (std::vector<std::string>{
                "Click here (at 1000000000000000,-1000000000000000)", "Click here (at 0,5)",
                "Scroll up", "Click here (at 0,1000000000000000)", "Type “a”", "Type “b”"}));
}

// How a step names what was clicked.
TEST(ElementInfo, PhraseNamesTheElementByItsLabelAndPlace) {
  struct PhraseCase {
    ElementInfo element;
    std::string phrase;
  };
  const std::vector<PhraseCase> cases = {
      {{"AXButton", "Send", std::nullopt, {"Chat"}}, "“Send” button in “Chat”"},
      {{"AXButton", "", std::nullopt, {"", "Toolbar"}}, "the button in “Toolbar”"},
      {{"AXPopUpButton", "Size", std::nullopt, {}}, "“Size” popupbutton"},
      {{"AXAXCell", "Mom", std::nullopt, {"Results", "Chats"}}, "“Mom” cell in “Results”"},
  };
  for (const PhraseCase& c : cases) {
    SCOPED_TRACE(c.phrase);
    EXPECT_EQ(c.element.phrase(), c.phrase);
  }
}

// The line of each kind of step, coordinates cut toward zero.
TEST(DemoStep, LinesReadAsInstructions) {
  ElementInfo send{"AXButton", "Send", std::nullopt, {"Chat"}};
  struct LineCase {
    DemoStep step;
    std::string line;
  };
  const std::vector<LineCase> cases = {
      {{DemoStep::Kind::click, 600.9, 700.2, {}, send, {}},
       "Click “Send” button in “Chat” (at 600,700)"},
      {{DemoStep::Kind::doubleClick, -3.7, 0.5, {}, {}, {}}, "Double-click here (at -3,0)"},
      {{DemoStep::Kind::rightClick, {}, {}, {}, send, {}}, "Right-click “Send” button in “Chat”"},
      {{DemoStep::Kind::type, {}, {}, "hello", {}, {}}, "Type “hello”"},
      {{DemoStep::Kind::key, {}, {}, "⌘+s", {}, {}}, "Press ⌘+s"},
      {{DemoStep::Kind::scroll, {}, {}, "down", {}, {}}, "Scroll down"},
  };
  for (const LineCase& c : cases) {
    SCOPED_TRACE(c.line);
    EXPECT_EQ(c.step.line(), c.line);
  }
}

// Folder names: lower case, words joined by single hyphens, at most 48 characters,
// letters of any script kept; a name with none gets the time.
TEST(Demonstration, SlugsAreFolderNames) {
  const SystemTime time = *parseISO8601("2026-05-01T09:30:00Z");
  const std::string fortySevenA(47, 'a');
  struct SlugCase {
    std::string name;
    std::string slug;
  };
  const std::vector<SlugCase> cases = {
      {"Send WhatsApp message", "send-whatsapp-message"},
      {"already-a-slug", "already-a-slug"},
      {"a--b__c..d", "a-b-c-d"},
      {"Überweisung senden", "überweisung-senden"},
      {"日本語 テスト", "日本語-テスト"},
      {"a\xff"
       "b",
       "a-b"},
      {"", "skill-1777627800"},
      {fortySevenA + " " + std::string(12, 'b'), fortySevenA + "-"},
      {std::string(60, 'x'), std::string(48, 'x')},
  };
  for (const SlugCase& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(Demonstration::slug(c.name, time), c.slug);
  }
  std::string fresh = Demonstration::slug("?");
  EXPECT_TRUE(fresh.starts_with("skill-17") || fresh.starts_with("skill-18")) << fresh;
}

// The prompt names the app, the skill, its purpose (inferred when empty), every step with
// the frame beside it in the skill folder, and the file the agent is to write.
TEST(Demonstration, PromptTellsTheAgentHowToWriteTheSkill) {
  std::vector<DemoStep> steps = {
      {DemoStep::Kind::click,
       12,
       30.6,
       {},
       ElementInfo{"AXButton", "New", std::nullopt, {}},
       "step-01.jpg"},
      {DemoStep::Kind::type, {}, {}, "Invoice", {}, {}},
  };
  EXPECT_EQ(Demonstration::stepLines(steps, "/s/new-invoice"),
            "1. Click “New” button (at 12,30)   [screenshot before this step: "
            "/s/new-invoice/step-01.jpg; the red "
            "ring marks the click]\n2. Type “Invoice”");

  std::string prompt = Demonstration::compilePrompt({.name = "New invoice",
                                                     .slug = "new-invoice",
                                                     .purpose = "",
                                                     .app = "Ledger",
                                                     .bundleID = "org.example.Ledger",
                                                     .skillDir = "/s/new-invoice",
                                                     .steps = steps});
  for (const std::string& part : std::vector<std::string>{"I just demonstrated a task in Ledger (org.example.Ledger)",
                                 "\nSkill name: New invoice\nWhat it's for: (infer from the steps)\n",
                                 ":\n" + Demonstration::stepLines(steps, "/s/new-invoice") + "\n\nDo this:",
                                 "Write /s/new-invoice/SKILL.md with YAML frontmatter `name: new-invoice`",
                                 "(mention Ledger)", "tools (screenshot, read_ui_tree", "on the Ledger window",
                                 "Don't run it now."}) {
    EXPECT_NE(prompt.find(part), std::string::npos) << part;
  }
  std::string withPurpose = Demonstration::compilePrompt({.name = "N", .purpose = "Monthly billing", .steps = {}});
  EXPECT_NE(withPurpose.find("\nWhat it's for: Monthly billing\n"), std::string::npos) << withPurpose;
}

}  // namespace
}  // namespace zorvane
