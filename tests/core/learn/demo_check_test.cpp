#include "core/learn/demo_check.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "core/learn/demonstration.h"
#include "support/test_support.h"

namespace zorvane {
namespace {

// The fixed recording reads back as the six steps a person would write down: the
// search field, "Mom", the chat, the message field, "Reached", return.
TEST(DemoCheck, RecordingCompilesToSixSteps) {
  std::vector<DemoStep> steps = Demonstration::compile(DemoCheck::events());
  std::vector<std::string> lines;
  for (const DemoStep& step : steps) lines.push_back(step.line());
  EXPECT_EQ(lines, (std::vector<std::string>{
                       "Click “Search or start new chat” textfield in “Chats” (at 160,90)",
                       "Type “Mom”",
                       "Click “Mom” cell in “Search results” (at 170,160)",
                       "Click “Type a message” textarea in “Mom” (at 600,700)",
                       "Type “Reached”",
                       "Press return",
                   }));
}

// "@learn-demo <folder>" becomes the prompt for that folder, and the folder exists
// afterwards; any other prompt is left alone.
TEST(DemoCheck, ReplacesOnlyLearnDemoPrompts) {
  testing::TempDir dir;
  std::string folder = dir.file("skills/send-whatsapp-message-test");
  std::optional<std::string> prompt = DemoCheck::prompt("@learn-demo " + folder);
  ASSERT_TRUE(prompt);  // its text, end to end: LearnDemoSelftest
  EXPECT_NE(prompt->find(folder + "/SKILL.md"), std::string::npos);
  struct stat info {};
  EXPECT_EQ(::stat(folder.c_str(), &info), 0);
  EXPECT_TRUE(S_ISDIR(info.st_mode));

  for (const char* other :
       {"Rename a.txt to b.txt", "@learn-demo", "@learn-demo\t/tmp/x", " @learn-demo /tmp/x", ""}) {
    SCOPED_TRACE(other);
    EXPECT_FALSE(DemoCheck::prompt(other));
  }

  // A folder that can't be made is no reason to stop: the agent will say so.
  dir.write("blocker", "a file");
  std::optional<std::string> blocked =
      DemoCheck::prompt("@learn-demo " + dir.file("blocker/skill"));
  ASSERT_TRUE(blocked);
  EXPECT_NE(blocked->find(dir.file("blocker/skill") + "/SKILL.md"), std::string::npos);
}

}  // namespace
}  // namespace zorvane
