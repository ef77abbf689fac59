#include "platform/linux/launched_processes.h"

#include <unistd.h>

#include "platform/linux/process_start_time.h"

namespace zorvane {

std::optional<std::string> LaunchedProcesses::processKey(int32_t pid) {
  auto started = processStartTime(pid);
  if (!started) return std::nullopt;
  return "pid " + std::to_string(pid) + " " + std::to_string(*started);
}

std::string LaunchedProcesses::clientKey(unsigned long client) { return "client " + std::to_string(client); }

void LaunchedProcesses::reset() {
  processes_.clear();
  if (auto own = processKey(getpid())) processes_[*own] = getpid();
}

bool LaunchedProcesses::add(const std::string& key, int32_t pid) { return processes_.emplace(key, pid).second; }

void LaunchedProcesses::forgetEnded() {
  for (auto it = processes_.begin(); it != processes_.end();) {
    int32_t pid = it->second;
    if (pid > 0 && !processStartTime(pid))
      it = processes_.erase(it);
    else
      ++it;
  }
}

}  // namespace zorvane
