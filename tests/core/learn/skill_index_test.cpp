#include "core/learn/skill_index.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "support/test_support.h"
#include "support/time_support.h"

namespace zorvane {

void PrintTo(const LearnedSkill& skill, std::ostream* out) {
  *out << encodeCompact(skill.encode());
}

namespace {

using testing::at;

LearnedSkill learned(std::string slug, std::string bundleID = "net.whatsapp.WhatsApp") {
  return {
      "Name of " + slug,          std::move(slug), std::move(bundleID), "WhatsApp",   "",
      at("2026-05-01T09:30:00Z"), std::nullopt,    std::nullopt,        std::nullopt, std::nullopt};
}

// The skills in the index, by slug, front first.
std::vector<std::string> slugsOf(const SkillIndex& index) {
  std::vector<std::string> slugs;
  for (const LearnedSkill& skill : index.skills()) slugs.push_back(skill.slug);
  return slugs;
}

class SkillIndexTest : public ::testing::Test {
 protected:
  void writeSkillFile(const std::string& slug, const std::string& text = "---\nname: x\n---\n") {
    std::filesystem::create_directories(SkillIndex::skillsRoot() + "/" + slug);
    std::ofstream(SkillIndex::skillsRoot() + "/" + slug + "/SKILL.md") << text;
  }

  testing::TempHome home;
  SystemTime clockTime = at("2026-06-02T10:00:00Z");
  SkillIndex::Clock clock = [this] { return clockTime; };
};

// The file is pretty with sorted keys and whole-second dates, counters left out while
// absent; a new index on the same file reads the same skills.
TEST_F(SkillIndexTest, SavesAReadableFileThatReadsBackEqual) {
  EXPECT_EQ(SkillIndex::defaultURL(), home.path() + "/.local/share/zorvane/skills.json");
  EXPECT_EQ(SkillIndex::skillsRoot(), home.path() + "/.claude/skills")
      << "where Claude Code reads skills";
  SkillIndex index(SkillIndex::defaultURL(), clock);
  LearnedSkill skill = learned("send-message");
  skill.created += std::chrono::milliseconds(750);
  index.add(skill);
  std::string text = testing::readAll(SkillIndex::defaultURL());
  EXPECT_EQ(text, encodePretty(*parseJSON(text))) << "pretty, keys sorted";
  EXPECT_EQ(*parseJSON(text), JSONValue::parse(R"([{"app":"WhatsApp","bundleID":"net.whatsapp.WhatsApp",
      "created":"2026-05-01T09:30:00Z","name":"Name of send-message","purpose":"","slug":"send-message"}])"));
  index.recordRun("send-message", false, true);
  SkillIndex reread(SkillIndex::defaultURL());
  EXPECT_EQ(reread.skills(), index.skills());
  EXPECT_EQ(reread.skills().at(0).lastFixed, clockTime);
}

// add replaces a skill of the same slug, counters and all, and puts it first.
TEST_F(SkillIndexTest, AddReplacesBySlugAndMovesToTheFront) {
  SkillIndex index(SkillIndex::defaultURL(), clock);
  index.add(learned("a"));
  index.add(learned("b"));
  index.recordRun("a", true, false);
  index.recordRun("a", true, false);
  EXPECT_EQ(slugsOf(index), (std::vector<std::string>{"a", "b"}));

  index.recordRun("b", true, false);
  EXPECT_EQ(slugsOf(index), (std::vector<std::string>{"b", "a"}))
      << "a run moves a skill to the front";

  LearnedSkill again = learned("a");
  again.name = "Relearned";
  index.add(again);
  EXPECT_EQ(slugsOf(index), (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(index.stats("a")->name, "Relearned");
  EXPECT_FALSE(index.stats("a")->runs) << "the old entry's counters went with it";
  EXPECT_FALSE(index.stats("nope"));
}

// recordRun counts runs, failures and fixes; an unknown slug gets a stub.
TEST_F(SkillIndexTest, RecordRunCountsRunsFailuresAndFixes) {
  SkillIndex index(SkillIndex::defaultURL(), clock);
  struct Run {
    bool ok, fixed;
    int64_t runs, failures, fixes;
  };
  index.add(learned("known"));
  const std::vector<Run> runs = {
      {true, false, 1, 0, 0},
      {false, false, 2, 1, 0},
      {false, true, 3, 2, 1},
  };
  for (const Run& run : runs) {
    SCOPED_TRACE(run.runs);
    clockTime += std::chrono::hours(1);
    index.recordRun("known", run.ok, run.fixed);
    LearnedSkill skill = *index.stats("known");
    EXPECT_EQ(skill.runs.value_or(0), run.runs);
    EXPECT_EQ(skill.failures.value_or(0), run.failures);
    EXPECT_EQ(skill.fixes.value_or(0), run.fixes);
    EXPECT_EQ(skill.lastFixed.has_value(), run.fixes > 0);
    if (run.fixed) {
      EXPECT_EQ(skill.lastFixed, clockTime);
    }
    EXPECT_EQ(skill.name, "Name of known") << "the entry is kept";
  }

  index.recordRun("from-elsewhere", true, false);
  LearnedSkill stub = *index.stats("from-elsewhere");
  EXPECT_EQ(stub, (LearnedSkill{"from-elsewhere", "from-elsewhere", "", "", "", clockTime, 1,
                                std::nullopt, std::nullopt, std::nullopt}));
}

// Skills of an application are those whose agent has written SKILL.md, in list order.
TEST_F(SkillIndexTest, SkillsForABundleNeedTheirFile) {
  SkillIndex index(SkillIndex::defaultURL(), clock);
  index.add(learned("older"));
  index.add(learned("other-app", "org.gnome.Calculator"));
  index.add(learned("not-written-yet"));
  index.add(learned("newer"));
  writeSkillFile("older");
  writeSkillFile("other-app");
  writeSkillFile("newer");
  std::filesystem::create_directories(SkillIndex::skillsRoot() + "/not-written-yet");

  std::vector<std::string> found;
  for (const LearnedSkill& skill : index.skillsForBundle("net.whatsapp.WhatsApp"))
    found.push_back(skill.slug);
  EXPECT_EQ(found, (std::vector<std::string>{"newer", "older"}));
  EXPECT_EQ(index.skillsForBundle("org.gnome.Calculator").size(), 1u);

  writeSkillFile("not-written-yet");
  EXPECT_EQ(index.skillsForBundle("net.whatsapp.WhatsApp").size(), 3u)
      << "shows up once the agent wrote it";
}

// Skill paths in a turn's text: each slug once, in order; only real folder names.
TEST(SkillIndex, FindsSkillPathsInText) {
  struct Case {
    std::string text;
    std::vector<std::string> slugs;
  };
  const std::vector<Case> cases = {
      {"", {}},
      {"Use ~/.claude/skills/send-message/SKILL.md to send it.", {"send-message"}},
      {"/home/u/.claude/skills/a/ and .claude/skills/b.v2_x/SKILL.md and .claude/skills/a/again",
       {"a", "b.v2_x"}},
      {".claude/skills//double", {}},
      {".claude/skills/has space/", {}},
      {".claude/skills/überweisung/", {"überweisung"}},
      {"claude/skills/x/ .claude/skill/y/", {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(SkillIndex::slugs(c.text), c.slugs);
  }
}

// The modification date of SKILL.md, to the nanosecond; absent without a readable file.
TEST_F(SkillIndexTest, ModifiedIsTheFilesDate) {
  EXPECT_FALSE(SkillIndex::modified("missing"));
  writeSkillFile("dated");
  std::string file = SkillIndex::skillsRoot() + "/dated/SKILL.md";
  timespec times[2] = {{1777627800, 123456789}, {1777627800, 123456789}};
  ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
  EXPECT_EQ(SkillIndex::modified("dated"),
            at("2026-05-01T09:30:00Z") + std::chrono::duration_cast<SystemTime::duration>(
                                             std::chrono::nanoseconds(123456789)));

  std::filesystem::create_directories(SkillIndex::skillsRoot() + "/folder-as-file/SKILL.md");
  EXPECT_FALSE(SkillIndex::modified("folder-as-file"));
}

// A file that can't be read as the index starts an empty one and is kept aside, so the
// next save can't destroy it; a save that fails keeps the skills in memory.
TEST_F(SkillIndexTest, BadFilesAreKeptAsideAndFailedSavesKeepMemory) {
  std::string url = SkillIndex::defaultURL();
  for (const std::string text : {"not json", "{\"an\": \"object\"}", "[{\"slug\": \"x\"}]"}) {
    SCOPED_TRACE(text);
    std::filesystem::remove_all(std::filesystem::path(url).parent_path());
    std::filesystem::create_directories(std::filesystem::path(url).parent_path());
    std::ofstream(url) << text;
    SkillIndex index(url);
    EXPECT_TRUE(index.skills().empty());
    EXPECT_EQ(testing::readAll(url + ".corrupt"), text);
    index.add(learned("fresh"));
    EXPECT_EQ(SkillIndex(url).skills().size(), 1u);
  }

  std::string blocked = home.path() + "/blocker/skills.json";
  std::ofstream(home.path() + "/blocker") << "a file where a folder should be";
  SkillIndex index(blocked);
  index.add(learned("kept"));
  EXPECT_EQ(slugsOf(index), std::vector<std::string>{"kept"});
}

}  // namespace
}  // namespace zorvane
