#include "core/agent/agent_discovery.h"

#include <algorithm>
#include <cctype>

namespace zorvane::AgentDiscovery {

const std::vector<std::string>& claudeRequiredFlags() {
  static const std::vector<std::string> flags = {
      "--print",      "--output-format", "--input-format", "--session-id",
      "--resume",     "--mcp-config",    "--settings",     "--append-system-prompt"};
  return flags;
}

int compareNumerically(std::string_view a, std::string_view b) {
  size_t i = 0, j = 0;
  while (i < a.size() && j < b.size()) {
    bool digitA = std::isdigit(static_cast<unsigned char>(a[i]));
    bool digitB = std::isdigit(static_cast<unsigned char>(b[j]));
    if (digitA && digitB) {
      size_t endA = i, endB = j;
      while (endA < a.size() && std::isdigit(static_cast<unsigned char>(a[endA]))) ++endA;
      while (endB < b.size() && std::isdigit(static_cast<unsigned char>(b[endB]))) ++endB;
      // Compare the numbers without converting: skip leading zeros, then length, then digits.
      size_t startA = i, startB = j;
      while (startA + 1 < endA && a[startA] == '0') ++startA;
      while (startB + 1 < endB && b[startB] == '0') ++startB;
      size_t lengthA = endA - startA, lengthB = endB - startB;
      if (lengthA != lengthB) return lengthA < lengthB ? -1 : 1;
      int digits = a.substr(startA, lengthA).compare(b.substr(startB, lengthB));
      if (digits != 0) return digits < 0 ? -1 : 1;
      i = endA;
      j = endB;
      continue;
    }
    if (a[i] != b[j]) return static_cast<unsigned char>(a[i]) < static_cast<unsigned char>(b[j]) ? -1 : 1;
    ++i;
    ++j;
  }
  if (i == a.size() && j == b.size()) return 0;
  return i == a.size() ? -1 : 1;
}

// The entries of `folder`, newest version first, each as <folder>/<entry><suffix>.
static void appendVersions(std::vector<std::string>& into, const std::string& folder,
                           const std::string& suffix, const ListDirectory& listDir) {
  std::vector<std::string> entries = listDir(folder);
  std::sort(entries.begin(), entries.end(), [](const std::string& a, const std::string& b) {
    return compareNumerically(a, b) > 0;
  });
  for (const std::string& entry : entries) into.push_back(folder + "/" + entry + suffix);
}

std::vector<std::string> searchDirectories(const std::string& home, const ListDirectory& listDir) {
  std::vector<std::string> folders = {
      home + "/.local/bin",   "/opt/homebrew/bin",     "/usr/local/bin",
      home + "/.claude/local", home + "/.bun/bin",     home + "/.npm-global/bin",
      home + "/.volta/bin",   home + "/.opencode/bin", home + "/.cargo/bin",
      home + "/bin",
  };
  appendVersions(folders, home + "/.nvm/versions/node", "/bin", listDir);
  appendVersions(folders, home + "/Library/Application Support/fnm/node-versions", "/installation/bin", listDir);
  appendVersions(folders, home + "/.local/share/fnm/node-versions", "/installation/bin", listDir);
  return folders;
}

std::vector<InstalledAgent> discover(const std::vector<AgentKind>& kinds,
                                     const std::vector<std::string>& directories,
                                     const IsExecutable& isExecutable) {
  std::vector<InstalledAgent> found;
  for (const AgentKind& kind : kinds) {
    bool hit = false;
    for (const std::string& folder : directories) {
      for (const std::string& name : kind.binaryNames) {
        std::string path = folder + "/" + name;
        if (!isExecutable(path)) continue;
        found.push_back({kind, path});
        hit = true;
        break;
      }
      if (hit) break;
    }
  }
  return found;
}

std::vector<std::string> missingFlags(std::string_view helpText,
                                      const std::vector<std::string>& required) {
  std::vector<std::string> missing;
  for (const std::string& flag : required) {
    if (helpText.find(flag) == std::string_view::npos) missing.push_back(flag);
  }
  return missing;
}

}  // namespace zorvane::AgentDiscovery
