#include "platform/x11/atspi_app.h"

#include <unistd.h>

#include <string>
#include <utility>

namespace zorvane {

using Clock = std::chrono::steady_clock;

AtspiApp::AtspiApp(GObjectPtr<AtspiAccessible> root, int32_t pid, std::chrono::milliseconds callTimeout,
                   std::chrono::milliseconds quietPeriod)
    : root_(std::move(root)), pid_(pid), callTimeout_(callTimeout), quietPeriod_(quietPeriod) {}

bool AtspiApp::answering() const { return Clock::now() >= quietUntil_; }

void AtspiApp::noteCall(Clock::time_point started) {
  Clock::time_point now = Clock::now();
  // A call that failed fast leaves no trace; only one that used up (nearly) all of its
  // time says that the application isn't answering.
  if (now - started >= callTimeout_ * 9 / 10) quietUntil_ = now + quietPeriod_;
}

const FileManagerApp* AtspiApp::fileManager() {
  if (fileManager_) return *fileManager_;
  char target[4096];
  std::string link = "/proc/" + std::to_string(pid_) + "/exe";
  ssize_t length = readlink(link.c_str(), target, sizeof target - 1);
  fileManager_ = length > 0 ? fileManagerForExecutable(std::string_view(target, size_t(length))) : nullptr;
  return *fileManager_;
}

}  // namespace zorvane
