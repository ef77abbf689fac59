#include "platform/linux/atspi_app.h"

#include <utility>

#include "platform/linux/file_managers.h"

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
  if (!fileManager_) fileManager_ = FileManagers::ofProcess(pid_);
  return *fileManager_;
}

}  // namespace zorvane
