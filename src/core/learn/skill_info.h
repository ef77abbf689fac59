// SkillInfo: what the hub shows of a skill on disk, learned here or written by hand:
// its folder name, the name and description of its SKILL.md frontmatter, and the file.
//
//   ---
//   name: weekly-report
//   description: "Builds the weekly report from the sales sheet"
//   ---
//
// Only that much of the frontmatter is read: lines that start with "name:" or
// "description:" in the first column, between the opening "---" and the next line that
// starts with "---" (or the end, when it is never closed). A value is the rest of its
// line, trimmed of blanks and tabs and then of quotes; a later line of the same key wins.
// Nothing else of YAML is understood. A byte-order mark and Windows line ends are
// tolerated.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zorvane {

struct SkillInfo {
  std::string slug;         // the folder's name; the identity in lists
  std::string name;         // from the frontmatter, else the slug
  std::string description;  // from the frontmatter, else empty
  std::string path;         // the skill's SKILL.md

  struct Frontmatter {
    std::optional<std::string> name;
    std::optional<std::string> description;
    friend bool operator==(const Frontmatter&, const Frontmatter&) = default;
  };

  // Every folder under `root` with a readable SKILL.md (a regular file), sorted by name
  // byte by byte, so capitals come first; equal names by slug. Items that aren't folders,
  // folders without the file and files that can't be read are left out; a root that
  // can't be listed gives none. Only the first megabyte of a file is read. Invalid UTF-8
  // is shown with U+FFFD.
  [[nodiscard]] static std::vector<SkillInfo> all(const std::string& root);

  // The name and description of a SKILL.md's frontmatter (see the file comment).
  [[nodiscard]] static Frontmatter parseFrontmatter(std::string_view text);

  friend bool operator==(const SkillInfo&, const SkillInfo&) = default;
};

}  // namespace zorvane
