// SkillRunTracker: sees, around one agent turn, which skills the turn used and whether
// the agent improved one of them. Each conversation owner (a piece, the hub chat, a
// scheduled run) keeps one.
//
// A turn that names a skill's path (".claude/skills/<slug>/") counts as a run of that
// skill. The agent is asked to edit a skill's SKILL.md after a run that needed a
// workaround, so a file modified during the turn counts as a fix:
//
//   tracker.begin(prompt);            // as the turn goes out: remember the files' dates
//   ... the turn runs ...
//   tracker.finish(outcome.isAnswer());  // count a run of each skill, and any fix
//
// A skill whose file didn't exist when the turn began can't be seen to be fixed. Main
// thread only.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/base/iso8601.h"
#include "core/hub/activity_log.h"
#include "core/learn/skill_index.h"

namespace zorvane {

struct SkillRunTracker {
  struct Entry {
    std::string slug;
    std::optional<SystemTime> mtime;  // SKILL.md's date when the turn began; absent if missing
    friend bool operator==(const Entry&, const Entry&) = default;
  };

  // The skills of the turn under way; empty between turns.
  std::vector<Entry> before;

  // Notes every skill named in the turn's text with its present date. A text that names
  // no skill leaves nothing to count.
  void begin(std::string_view text);

  // Counts a run of each noted skill in `index`, failed unless `ok`, fixed when its file
  // is newer now than at `begin`; a fix is also told in `log` ("Skill · <slug>",
  // "Improved itself after a run"). Then forgets them, so a second finish counts nothing.
  void finish(bool ok, SkillIndex& index = Skills::index(),
              ActivityLog& log = ActivityLog::shared());
};

}  // namespace zorvane
