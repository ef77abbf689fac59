#include "core/learn/skill_run_tracker.h"

namespace zorvane {

void SkillRunTracker::begin(std::string_view text) {
  before.clear();
  for (std::string& slug : SkillIndex::slugs(text)) {
    std::optional<SystemTime> mtime = SkillIndex::modified(slug);
    before.push_back({std::move(slug), mtime});
  }
}

void SkillRunTracker::finish(bool ok, SkillIndex& index, ActivityLog& log) {
  std::vector<Entry> entries = std::exchange(before, {});
  for (const Entry& entry : entries) {
    std::optional<SystemTime> now = SkillIndex::modified(entry.slug);
    bool fixed = entry.mtime && now && *now > *entry.mtime;
    index.recordRun(entry.slug, ok, fixed);
    if (fixed)
      log.add(ActivityEvent(ActivityEvent::Kind::skill, "Skill · " + entry.slug,
                            "Improved itself after a run"));
  }
}

}  // namespace zorvane
