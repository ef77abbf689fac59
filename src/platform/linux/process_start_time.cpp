#include "platform/linux/process_start_time.h"

#include <fstream>
#include <sstream>
#include <string>

namespace zorvane {

std::optional<unsigned long long> processStartTime(int32_t pid) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
  std::string stat;
  if (!std::getline(file, stat)) return std::nullopt;
  size_t close = stat.rfind(')');  // the command name may hold blanks and parentheses
  if (close == std::string::npos) return std::nullopt;
  std::istringstream fields(stat.substr(close + 1));
  std::string field;
  // After the name: state (3) ... starttime (22).
  for (int index = 3; index < 22; ++index)
    if (!(fields >> field)) return std::nullopt;
  unsigned long long ticks = 0;
  if (!(fields >> ticks)) return std::nullopt;
  return ticks;
}

}  // namespace zorvane
