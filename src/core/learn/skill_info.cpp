#include "core/learn/skill_info.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "core/base/utf8.h"

namespace zorvane {

// A SKILL.md's frontmatter is at its top; no sane file needs more than this read.
static constexpr size_t kReadLimit = 1 << 20;

static std::string_view trimBlanks(std::string_view text) {
  size_t start = text.find_first_not_of(" \t");
  if (start == std::string_view::npos) return {};
  size_t end = text.find_last_not_of(" \t");
  return text.substr(start, end - start + 1);
}

static std::string frontmatterValue(std::string_view rest) {
  std::string_view value = trimBlanks(rest);
  size_t start = value.find_first_not_of("\"'");
  if (start == std::string_view::npos) return "";
  size_t end = value.find_last_not_of("\"'");
  return std::string(value.substr(start, end - start + 1));
}

SkillInfo::Frontmatter SkillInfo::parseFrontmatter(std::string_view text) {
  if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
  if (!text.starts_with("---")) return {};
  size_t feed = text.find('\n');
  if (feed == std::string_view::npos) return {};  // one line: nothing behind the opening

  Frontmatter found;
  std::string_view rest = text.substr(feed + 1);
  while (true) {
    size_t end = rest.find('\n');
    std::string_view line = rest.substr(0, end);
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (line.starts_with("---")) break;
    if (line.starts_with("name:")) found.name = frontmatterValue(line.substr(5));
    if (line.starts_with("description:")) found.description = frontmatterValue(line.substr(12));
    if (end == std::string_view::npos) break;
    rest.remove_prefix(end + 1);
  }
  return found;
}

// The first kReadLimit bytes of a regular file; absent if it isn't one or can't be
// read. Opened without waiting, so a pipe or device in a skill folder can't hang the list.
static std::optional<std::string> readSkillFile(const std::string& path) {
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (fd < 0) return std::nullopt;
  struct stat info {};
  if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
    ::close(fd);
    return std::nullopt;
  }
  std::string bytes;
  char buffer[65536];
  while (bytes.size() < kReadLimit) {
    ssize_t count = ::read(fd, buffer, std::min(sizeof buffer, kReadLimit - bytes.size()));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) {
      ::close(fd);
      return std::nullopt;
    }
    if (count == 0) break;
    bytes.append(buffer, static_cast<size_t>(count));
  }
  ::close(fd);
  return bytes;
}

std::vector<SkillInfo> SkillInfo::all(const std::string& root) {
  std::vector<SkillInfo> skills;
  DIR* directory = ::opendir(root.c_str());
  if (directory == nullptr) return skills;
  std::vector<std::string> names;
  while (dirent* entry = ::readdir(directory)) {
    std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(std::move(name));
  }
  ::closedir(directory);

  for (std::string& slug : names) {
    std::string path = root + "/" + slug + "/SKILL.md";
    std::optional<std::string> bytes = readSkillFile(path);
    if (!bytes) continue;
    Frontmatter frontmatter = parseFrontmatter(repairUTF8(*bytes));
    std::string name = frontmatter.name.value_or("");
    if (name.empty()) name = repairUTF8(slug);
    skills.push_back(
        {std::move(slug), std::move(name), frontmatter.description.value_or(""), std::move(path)});
  }
  std::sort(skills.begin(), skills.end(), [](const SkillInfo& a, const SkillInfo& b) {
    if (a.name != b.name) return a.name < b.name;
    return a.slug < b.slug;
  });
  return skills;
}

}  // namespace zorvane
