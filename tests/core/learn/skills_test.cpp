#include "core/learn/skills.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "core/base/run_loop.h"
#include "support/test_support.h"

namespace zorvane {
namespace {

using std::filesystem::exists;

class SkillsTest : public ::testing::Test {
 protected:
  std::vector<DemoStep> steps() const {
    ElementInfo send{"AXButton", "Send", std::nullopt, {"Chat"}};
    return {
        {DemoStep::Kind::click, 10, 20, std::nullopt, send, "step-01.jpg"},
        {DemoStep::Kind::type, std::nullopt, std::nullopt, "Hello", std::nullopt, std::nullopt},
        {DemoStep::Kind::doubleClick, 30, 40, std::nullopt, std::nullopt, "step-03.jpg"},
    };
  }

  testing::TempHome home;
  std::string recording = home.path() + "/recording-work";
  SystemTime now = *parseISO8601("2026-05-01T09:30:00Z");
  RunLoop loop;
  std::shared_ptr<ActivityLog> log = ActivityLog::make(home.path() + "/activity.json", loop);
  SkillIndex index{home.path() + "/skills.json"};
};

// Saving a demonstration: the frames and the steps land in the skill folder where
// Claude Code reads skills, the working folder goes, the index and the activity log
// know the skill, and the agent gets the prompt that asks it to write SKILL.md.
TEST_F(SkillsTest, SavesTheRecordingAsASkill) {
  std::filesystem::create_directories(recording);
  std::ofstream(recording + "/step-01.jpg") << "frame one";
  std::ofstream(recording + "/step-03.jpg") << "frame three";
  std::ofstream(recording + "/step-02.jpg") << "a frame no step points at";
  std::string folder = SkillIndex::skillsRoot() + "/send-a-chat-message";
  std::filesystem::create_directories(folder);
  std::ofstream(folder + "/step-03.jpg") << "an old frame";

  Skills::SavedSkill saved = Skills::save({.name = "Send a chat message!",
                                           .purpose = "Greeting people",
                                           .steps = steps(),
                                           .recordingFolder = recording,
                                           .bundleID = "org.example.Chat",
                                           .app = "Chat"},
                                          index, *log, now);

  EXPECT_EQ(saved.slug, "send-a-chat-message");
  EXPECT_EQ(saved.folder, folder);
  EXPECT_EQ(testing::readAll(folder + "/step-01.jpg"), "frame one");
  EXPECT_EQ(testing::readAll(folder + "/step-03.jpg"), "frame three")
      << "a frame of that name is replaced";
  EXPECT_FALSE(exists(folder + "/step-02.jpg"));
  EXPECT_FALSE(exists(recording)) << "the recorder's working folder is removed";

  auto recorded = parseJSON(testing::readAll(folder + "/recording.json"));
  ASSERT_TRUE(recorded && recorded->is_array());
  std::vector<DemoStep> readBack;
  for (const JSONValue& step : *recorded) readBack.push_back(*DemoStep::decode(step));
  EXPECT_EQ(readBack, steps());

  EXPECT_EQ(index.skills(),
            (std::vector<LearnedSkill>{{"Send a chat message!", "send-a-chat-message",
                                        "org.example.Chat", "Chat", "Greeting people", now,
                                        std::nullopt, std::nullopt, std::nullopt, std::nullopt}}));
  EXPECT_EQ(SkillIndex(index.url()).skills(), index.skills()) << "and it is saved";

  loop.runUntilIdle();
  ASSERT_EQ(log->events().size(), 1u);
  EXPECT_EQ(log->events()[0].kind, ActivityEvent::Kind::skill);
  EXPECT_EQ(log->events()[0].actor, "Skill · Send a chat message!");
  EXPECT_EQ(log->events()[0].text, "Learned from your demo in Chat (3 steps)");
  EXPECT_FALSE(log->events()[0].ok);

  EXPECT_EQ(saved.shownText, "Learn “Send a chat message!” from my demo (3 steps)");
  EXPECT_NE(saved.prompt.find("Write " + folder + "/SKILL.md"), std::string::npos) << saved.prompt;
  EXPECT_FALSE(exists(folder + "/SKILL.md")) << "the agent writes it, not the save";
}

// Missing frames, frame names that would leave the folder, and a working folder that
// overlaps the skill folder don't stop the save and harm nothing.
TEST_F(SkillsTest, SavesWhatItCanFromABadRecording) {
  std::filesystem::create_directories(home.path() + "/outside");
  std::ofstream(home.path() + "/outside/evil.jpg") << "not to be copied";
  std::vector<DemoStep> odd = {
      {DemoStep::Kind::click, 1, 2, std::nullopt, std::nullopt, "step-09.jpg"},
      {DemoStep::Kind::click, 1, 2, std::nullopt, std::nullopt, "../outside/evil.jpg"},
      {DemoStep::Kind::click, 1, 2, std::nullopt, std::nullopt, ".."},
      {DemoStep::Kind::click, 1, 2, std::nullopt, std::nullopt, ""},
  };
  std::string folder = SkillIndex::skillsRoot() + "/odd";
  std::string inside = folder + "/work";
  std::filesystem::create_directories(inside);
  Skills::SavedSkill saved = Skills::save({.name = "Odd",
                                           .purpose = "",
                                           .steps = odd,
                                           .recordingFolder = inside,
                                           .bundleID = "",
                                           .app = ""},
                                          index, *log, now);
  EXPECT_EQ(saved.folder, folder);
  EXPECT_TRUE(exists(inside)) << "a working folder inside the skill folder stays";
  EXPECT_TRUE(exists(folder + "/recording.json"));
  EXPECT_FALSE(exists(SkillIndex::skillsRoot() + "/outside/evil.jpg"));
  EXPECT_FALSE(exists(folder + "/step-09.jpg"));
  EXPECT_EQ(saved.shownText, "Learn “Odd” from my demo (4 steps)");

  // The skills root itself as the working folder: nothing is removed.
  Skills::save({.name = "Root", .steps = {}, .recordingFolder = SkillIndex::skillsRoot()}, index,
               *log, now);
  EXPECT_TRUE(exists(folder + "/recording.json"));
  EXPECT_TRUE(exists(SkillIndex::skillsRoot() + "/root/recording.json"));
  EXPECT_EQ(testing::readAll(SkillIndex::skillsRoot() + "/root/recording.json"), "[]");

  // A home where the skills folder can't be made: still an index entry and a prompt.
  std::filesystem::remove_all(home.path() + "/.claude");
  std::ofstream(home.path() + "/.claude") << "a file in the way";
  Skills::SavedSkill blocked = Skills::save({.name = "Blocked", .steps = {}}, index, *log, now);
  EXPECT_EQ(index.skills().front().slug, "blocked");
  EXPECT_NE(blocked.prompt.find(blocked.folder + "/SKILL.md"), std::string::npos);
}

}  // namespace
}  // namespace zorvane
