#include "core/learn/skill_index.h"

#include <sys/stat.h>

#include <algorithm>

#include "core/base/log.h"
#include "core/base/paths.h"
#include "core/base/store_file.h"
#include "core/registry/store_coding.h"

namespace zorvane {

namespace chr = std::chrono;

SkillIndex::SkillIndex(std::string url, Clock clock)
    : url_(std::move(url)), clock_(std::move(clock)) {
  StoreCoding::loadRecords(url_, [&](const JSONValue& array) -> Expected<void> {
    auto decoded = StoreCoding::decodeArray<LearnedSkill>(array, &LearnedSkill::decode);
    if (!decoded) return Failure{decoded.error()};
    skills_ = std::move(*decoded);
    return ok();
  });
}

std::string SkillIndex::skillsRoot() {
  return Paths::claudeSkillsDirectory();
}

std::string SkillIndex::defaultURL() {
  return Paths::dataDirectory() + "/skills.json";
}

SystemTime SkillIndex::now() const {
  return clock_ ? clock_() : chr::system_clock::now();
}

void SkillIndex::add(LearnedSkill skill) {
  skill.created = chr::floor<chr::seconds>(skill.created);
  if (skill.lastFixed) skill.lastFixed = chr::floor<chr::seconds>(*skill.lastFixed);
  std::erase_if(skills_, [&](const LearnedSkill& old) { return old.slug == skill.slug; });
  skills_.insert(skills_.begin(), std::move(skill));
  save();
}

void SkillIndex::recordRun(std::string_view slug, bool ok, bool fixed) {
  SystemTime time = now();
  LearnedSkill skill =
      stats(slug).value_or(LearnedSkill{std::string(slug), std::string(slug), "", "", "", time,
                                        std::nullopt, std::nullopt, std::nullopt, std::nullopt});
  skill.runs = skill.runs.value_or(0) + 1;
  if (!ok) skill.failures = skill.failures.value_or(0) + 1;
  if (fixed) {
    skill.fixes = skill.fixes.value_or(0) + 1;
    skill.lastFixed = time;
  }
  add(std::move(skill));
}

std::optional<LearnedSkill> SkillIndex::stats(std::string_view slug) const {
  auto found = std::find_if(skills_.begin(), skills_.end(),
                            [&](const LearnedSkill& skill) { return skill.slug == slug; });
  if (found == skills_.end()) return std::nullopt;
  return *found;
}

static bool isRegularFile(const std::string& path) {
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

std::vector<LearnedSkill> SkillIndex::skillsForBundle(std::string_view bundleID) const {
  std::string root = skillsRoot();
  std::vector<LearnedSkill> found;
  for (const LearnedSkill& skill : skills_) {
    if (skill.bundleID != bundleID || skill.slug.empty()) continue;
    if (isRegularFile(root + "/" + skill.slug + "/SKILL.md")) found.push_back(skill);
  }
  return found;
}

static bool isSlugByte(unsigned char byte) {
  return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
         (byte >= '0' && byte <= '9') || byte == '.' || byte == '_' || byte == '-' || byte >= 0x80;
}

std::vector<std::string> SkillIndex::slugs(std::string_view text) {
  static constexpr std::string_view kSkillPath = ".claude/skills/";
  std::vector<std::string> found;
  size_t pos = 0;
  while ((pos = text.find(kSkillPath, pos)) != std::string_view::npos) {
    size_t start = pos + kSkillPath.size();
    size_t end = start;
    while (end < text.size() && isSlugByte(static_cast<unsigned char>(text[end]))) ++end;
    pos = start;
    if (end == start || end >= text.size() || text[end] != '/') continue;
    pos = end + 1;  // matches don't overlap
    std::string slug(text.substr(start, end - start));
    if (slug == "." || slug == "..") continue;
    if (std::find(found.begin(), found.end(), slug) == found.end())
      found.push_back(std::move(slug));
  }
  return found;
}

std::optional<SystemTime> SkillIndex::modified(std::string_view slug) {
  if (slug.empty() || slug.find('/') != std::string_view::npos) return std::nullopt;
  struct stat info {};
  std::string path = skillsRoot() + "/" + std::string(slug) + "/SKILL.md";
  if (::stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) return std::nullopt;
  auto sinceEpoch = chr::seconds(info.st_mtim.tv_sec) + chr::nanoseconds(info.st_mtim.tv_nsec);
  return SystemTime(chr::duration_cast<SystemTime::duration>(sinceEpoch));
}

void SkillIndex::save() const {
  JSONValue array = JSONValue::array();
  for (const LearnedSkill& skill : skills_) array.push_back(skill.encode());
  if (auto saved = StoreFile::save(url_, encodePretty(array)); !saved) {
    Log::info("store " + url_ + ": couldn't save (" + saved.error() +
              "); the skills stay in memory");
  }
}

SkillIndex& Skills::index() {
  static SkillIndex index(SkillIndex::defaultURL());
  return index;
}

}  // namespace zorvane
