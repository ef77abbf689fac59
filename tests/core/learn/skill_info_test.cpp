#include "core/learn/skill_info.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "core/learn/skill_index.h"
#include "support/test_support.h"

namespace zorvane {

void PrintTo(const SkillInfo& info, std::ostream* out) {
  *out << "{" << info.slug << ", " << info.name << ", " << info.description << ", " << info.path
       << "}";
}

namespace {

using Frontmatter = SkillInfo::Frontmatter;

// Only name and description, from the first column, between the "---" lines; values
// lose their blanks and quotes; a later line wins.
TEST(SkillInfo, ReadsNameAndDescriptionFromTheFrontmatter) {
  struct Case {
    std::string text;
    Frontmatter expected;
  };
  const std::vector<Case> cases = {
      {"---\nname: weekly-report\ndescription: Builds the weekly report\n---\n# Body",
       {"weekly-report", "Builds the weekly report"}},
      {"---\nname:   \"quoted name\"  \ndescription: 'single quoted'\n---",
       {"quoted name", "single quoted"}},
      {"---\ndescription: \"It's the user's \"best\" tool\"\n---",
       {std::nullopt, "It's the user's \"best\" tool"}},
      {"---\nname: first\nname: second\n---", {"second", std::nullopt}},
      {"---\nname: inside\n---\nname: after the closing line", {"inside", std::nullopt}},
      {"---\nname: never closed\n\n# Body\ndescription: from the body",
       {"never closed", "from the body"}},
      {"---\n  name: indented\n---", {}},
      {"---\ndescription: >\n  folded on the next line\n---", {std::nullopt, ">"}},
      {"---\nname:\n---", {"", std::nullopt}},
      {"---\r\nname: windows\r\ndescription: line ends\r\n---\r\n", {"windows", "line ends"}},
      {"\xEF\xBB\xBF---\nname: with a mark\n---", {"with a mark", std::nullopt}},
      {"\n---\nname: after a blank line\n---", {}},
      {"----\nname: four dashes open\n---", {"four dashes open", std::nullopt}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(SkillInfo::parseFrontmatter(c.text), c.expected);
  }
}

// Every skill folder under the root, named by its frontmatter or its folder, in name
// order with capitals first; what isn't a readable skill folder is left out.
TEST(SkillInfo, ListsTheSkillsOnDisk) {
  testing::TempHome home;
  std::string root = SkillIndex::skillsRoot();
  testing::TempDir scratch;
  auto write = [&](const std::string& relative, const std::string& text) {
    std::filesystem::create_directories(std::filesystem::path(root + "/" + relative).parent_path());
    std::ofstream(root + "/" + relative) << text;
  };
  // A skill as people write them by hand for Claude Code, with keys this list ignores.
  write("pdf-forms/SKILL.md",
        "---\n"
        "name: pdf-forms\n"
        "description: Fill in PDF forms. Use when the user asks to complete a PDF form.\n"
        "allowed-tools: Read, Bash(python3:*)\n"
        "---\n\n"
        "# PDF forms\n\n## Instructions\n1. Read the form.\n");
  write("send-message/SKILL.md",
        "---\nname: \"Send message\"\ndescription: 'Sends a chat message'\n---\n");
  write("no-frontmatter/SKILL.md", "# Just notes\n");
  write("unclosed/SKILL.md", "---\nname: Zebra\n");
  write("bad-bytes/SKILL.md", "---\nname: caf\xe9\n---\n");
  write("no-skill-file/README.md", "not a skill");
  write("loose-file.md", "a file, not a folder");
  std::filesystem::create_directories(root + "/folder-named-skill/SKILL.md");
  std::filesystem::create_directories(root + "/pipe");
  ASSERT_EQ(::mkfifo((root + "/pipe/SKILL.md").c_str(), 0600), 0)
      << "a pipe must not hang the list";
  write("empty-name/SKILL.md", "---\nname:\ndescription: Named by its folder\n---\n");
  std::filesystem::create_directory_symlink(scratch.path(), root + "/linked");
  scratch.write("SKILL.md", "---\nname: Linked from elsewhere\n---\n");
  write("unreadable/SKILL.md", "---\nname: secret\n---\n");
  ::chmod((root + "/unreadable/SKILL.md").c_str(), 0);
  bool canReadAnyway =
      ::access((root + "/unreadable/SKILL.md").c_str(), R_OK) == 0;  // running as root

  std::vector<SkillInfo> all = SkillInfo::all(root);
  std::vector<SkillInfo> expected = {
      {"linked", "Linked from elsewhere", "", root + "/linked/SKILL.md"},
      {"send-message", "Send message", "Sends a chat message", root + "/send-message/SKILL.md"},
      {"unclosed", "Zebra", "", root + "/unclosed/SKILL.md"},
      {"bad-bytes", "caf\xEF\xBF\xBD", "", root + "/bad-bytes/SKILL.md"},
      {"empty-name", "empty-name", "Named by its folder", root + "/empty-name/SKILL.md"},
      {"no-frontmatter", "no-frontmatter", "", root + "/no-frontmatter/SKILL.md"},
      {"pdf-forms", "pdf-forms",
       "Fill in PDF forms. Use when the user asks to complete a PDF form.",
       root + "/pdf-forms/SKILL.md"},
  };
  if (canReadAnyway)
    expected.push_back({"unreadable", "secret", "", root + "/unreadable/SKILL.md"});
  EXPECT_EQ(all, expected);
  ::chmod((root + "/unreadable/SKILL.md").c_str(), 0600);

  EXPECT_TRUE(SkillInfo::all(home.path() + "/nowhere").empty());
}

}  // namespace
}  // namespace zorvane
