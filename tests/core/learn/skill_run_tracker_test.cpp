#include "core/learn/skill_run_tracker.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "core/base/run_loop.h"
#include "support/test_support.h"

namespace zorvane {
namespace {

class SkillRunTrackerTest : public ::testing::Test {
 protected:
  // A SKILL.md dated `seconds` after 2026-05-01T09:30:00Z.
  void writeSkill(const std::string& slug, long seconds) {
    std::string folder = SkillIndex::skillsRoot() + "/" + slug;
    std::filesystem::create_directories(folder);
    std::ofstream(folder + "/SKILL.md") << "---\nname: " << slug << "\n---\n";
    timespec times[2] = {{1777627800 + seconds, 0}, {1777627800 + seconds, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, (folder + "/SKILL.md").c_str(), times, 0), 0);
  }
  std::string path(const std::string& slug) {
    return SkillIndex::skillsRoot() + "/" + slug + "/SKILL.md";
  }
  int64_t runs(const std::string& slug) {
    return index.stats(slug) ? index.stats(slug)->runs.value_or(0) : 0;
  }
  int64_t fixes(const std::string& slug) {
    return index.stats(slug) ? index.stats(slug)->fixes.value_or(0) : 0;
  }
  std::vector<std::string> activity() {
    loop.runUntilIdle();
    std::vector<std::string> lines;
    for (const ActivityEvent& event : log->events()) {
      lines.push_back(std::string(rawValue(event.kind)) + " | " + event.actor + " | " + event.text +
                      (event.ok ? " | verdict" : ""));
    }
    return lines;
  }

  testing::TempHome home;
  RunLoop loop;
  std::shared_ptr<ActivityLog> log = ActivityLog::make(home.path() + "/activity.json", loop);
  SkillIndex index{home.path() + "/skills.json"};
  SkillRunTracker tracker;
};

// A turn that names skills counts one run of each, failed or not; one that names none
// counts nothing, and a second finish counts nothing again.
TEST_F(SkillRunTrackerTest, CountsARunOfEachSkillTheTurnNamed) {
  writeSkill("send-message", 0);
  tracker.begin("Use " + path("send-message") + ", then " + path("send-message") +
                " and ~/.claude/skills/not-yet/.");
  EXPECT_EQ(tracker.before.size(), 2u);
  tracker.finish(true, index, *log);
  EXPECT_EQ(runs("send-message"), 1);
  EXPECT_EQ(runs("not-yet"), 1);
  EXPECT_FALSE(index.stats("send-message")->failures);
  EXPECT_TRUE(tracker.before.empty());

  tracker.finish(true, index, *log);
  EXPECT_EQ(runs("send-message"), 1) << "a second finish counts nothing";

  tracker.begin(path("send-message"));
  tracker.finish(false, index, *log);
  EXPECT_EQ(runs("send-message"), 2);
  EXPECT_EQ(index.stats("send-message")->failures, 1);

  tracker.begin("Just a question, no skill.");
  EXPECT_TRUE(tracker.before.empty());
  tracker.finish(true, index, *log);
  EXPECT_EQ(index.skills().size(), 2u);
  EXPECT_TRUE(activity().empty()) << "runs without a fix aren't activity";
}

// A SKILL.md that changed during the turn counts as a fix and says so in the activity
// log; one that didn't exist when the turn began can't be seen to be fixed.
TEST_F(SkillRunTrackerTest, SeesASkillThatImprovedItself) {
  writeSkill("pay-invoice", 0);
  writeSkill("untouched", 0);
  tracker.begin(path("pay-invoice") + " " + path("untouched") + " " + path("created-during-turn"));
  writeSkill("pay-invoice", 60);
  writeSkill("created-during-turn", 60);
  tracker.finish(false, index, *log);

  EXPECT_EQ(fixes("pay-invoice"), 1);
  EXPECT_EQ(index.stats("pay-invoice")->failures, 1) << "a failed run that was fixed counts both";
  EXPECT_TRUE(index.stats("pay-invoice")->lastFixed);
  EXPECT_EQ(fixes("untouched"), 0);
  EXPECT_EQ(fixes("created-during-turn"), 0);
  EXPECT_EQ(runs("created-during-turn"), 1);
  EXPECT_EQ(activity(),
            std::vector<std::string>{"skill | Skill · pay-invoice | Improved itself after a run"});

  tracker.begin(path("pay-invoice"));
  writeSkill("pay-invoice", 30);  // an older date: not an improvement
  tracker.finish(true, index, *log);
  EXPECT_EQ(fixes("pay-invoice"), 1);
  EXPECT_EQ(runs("pay-invoice"), 2);
}

}  // namespace
}  // namespace zorvane
