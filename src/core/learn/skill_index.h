// SkillIndex: the file of learned skills, "skills.json" in the data folder, with their
// run counts. A skill itself is a folder with a "SKILL.md" under the skills root,
// ~/.claude/skills, where Claude Code picks it up; this index only knows its name, its
// application and how it has fared, and outlives the folder.
//
// The file is a JSON array of LearnedSkill objects, most recently touched first,
// pretty-printed with sorted keys. It is read once by the constructor and rewritten
// after every change. Loading is all or nothing: a missing file is empty, and so is one
// that isn't a JSON array or holds a single object that doesn't decode; such a file is
// moved aside to "skills.json.corrupt" and logged before the next save could overwrite
// it. A failed save is logged and the skills in memory stand.
//
//   SkillIndex& index = Skills::index();
//   index.recordRun("send-whatsapp-message", /*ok=*/true, /*fixed=*/false);
//   index.stats("send-whatsapp-message")->runs;  // 1 more than before
//
// No lock: the index belongs to the main thread.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/base/iso8601.h"
#include "core/learn/learned_skill.h"

namespace zorvane {

class SkillIndex {
 public:
  using Clock = std::function<SystemTime()>;

  // Reads the file at `url` (a file path); any failure leaves the index empty. `clock`
  // dates new stubs and fixes; the system clock by default.
  explicit SkillIndex(std::string url, Clock clock = {});

  // ~/.claude/skills: where Claude Code reads skills, one folder each.
  [[nodiscard]] static std::string skillsRoot();
  // "skills.json" in Paths::dataDirectory().
  [[nodiscard]] static std::string defaultURL();

  [[nodiscard]] const std::string& url() const { return url_; }
  // Most recently touched first.
  [[nodiscard]] const std::vector<LearnedSkill>& skills() const { return skills_; }

  // Drops every skill with the same slug, puts `skill` first and saves. Dates are cut to
  // whole seconds, as the file keeps them.
  void add(LearnedSkill skill);

  // Counts one run of the skill: `runs` + 1, `failures` + 1 unless `ok`, and when `fixed`
  // `fixes` + 1 with `lastFixed` now; then moves it to the front and saves. A slug the
  // index doesn't know gets a stub (name and slug the slug, created now), so skills made
  // elsewhere get their counts too.
  void recordRun(std::string_view slug, bool ok, bool fixed);

  // The first skill with that slug.
  [[nodiscard]] std::optional<LearnedSkill> stats(std::string_view slug) const;

  // In list order, the skills learned in that application whose SKILL.md exists now. A
  // skill whose agent hasn't written its file yet is left out.
  [[nodiscard]] std::vector<LearnedSkill> skillsForBundle(std::string_view bundleID) const;

  // The slugs of every skill path ".claude/skills/<slug>/" named in `text` (a turn's
  // prompt, say), each once, in order of first mention. A slug is made of letters,
  // digits, ".", "_" and "-" (and the letters of other scripts that Demonstration::slug
  // keeps); "." and ".." are not slugs.
  [[nodiscard]] static std::vector<std::string> slugs(std::string_view text);

  // When that skill's SKILL.md was last modified, to the nanosecond; absent if it can't
  // be read.
  [[nodiscard]] static std::optional<SystemTime> modified(std::string_view slug);

 private:
  void save() const;
  [[nodiscard]] SystemTime now() const;

  std::string url_;
  Clock clock_;
  std::vector<LearnedSkill> skills_;
};

namespace Skills {
// The application's one index, at SkillIndex::defaultURL(), made on first use. Main
// thread only.
SkillIndex& index();
}  // namespace Skills

}  // namespace zorvane
