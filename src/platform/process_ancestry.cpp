#include "platform/process_ancestry.h"

#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

namespace zorvane {

// The parent of a process from /proc/<pid>/stat; the name field may hold blanks and
// parentheses, so the fields are read after the last ')'.
static int32_t parentOf(int32_t pid) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
  std::string line;
  if (!std::getline(file, line)) return 0;
  auto close = line.rfind(')');
  if (close == std::string::npos) return 0;
  std::istringstream rest(line.substr(close + 1));
  char state = 0;
  int32_t parent = 0;
  rest >> state >> parent;
  return parent;
}

bool isProcessDescendant(int32_t pid, int32_t ancestor) {
  if (pid <= 0 || ancestor <= 0) return false;
  // A chain of processes is never this deep; the bound ends a read that loops.
  for (int depth = 0; depth < 256 && pid > 1; ++depth) {
    if (pid == ancestor) return true;
    pid = parentOf(pid);
  }
  return pid == ancestor;
}

}  // namespace zorvane
