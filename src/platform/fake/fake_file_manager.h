// FakeFileManager: a file manager for tests. `owner` is what `owner()` answers; each
// reveal is recorded and answered on the main queue by `revealAnswer` (a failure's text
// when set), after `onReveal` has run (a test opens the window there). With
// `holdReveals`, answers wait until `answerHeldReveals()`.
#pragma once

#include <vector>

#include "core/base/main_queue.h"
#include "platform/file_manager.h"

namespace zorvane {

class FakeFileManager final : public FileManager {
 public:
  explicit FakeFileManager(MainQueue& queue) : queue_(queue) {}

  std::optional<FileManagerOwner> currentOwner;
  std::optional<std::string> revealFailure;
  std::function<void(const URL&)> onReveal;
  bool holdReveals = false;
  std::vector<URL> revealed;
  int ownerQueries = 0;

  std::optional<FileManagerOwner> owner() override {
    ++ownerQueries;
    return currentOwner;
  }
  void reveal(const URL& url, std::function<void(Expected<void>)> done) override {
    revealed.push_back(url);
    if (onReveal) onReveal(url);
    held_.push_back(std::move(done));
    if (!holdReveals) answerHeldReveals();
  }
  void answerHeldReveals() {
    for (auto& done : std::exchange(held_, {})) {
      Expected<void> answer = revealFailure ? Expected<void>(Failure{*revealFailure}) : ok();
      queue_.post([done = std::move(done), answer] { done(answer); });
    }
  }

 private:
  MainQueue& queue_;
  std::vector<std::function<void(Expected<void>)>> held_;
};

}  // namespace zorvane
