#include "core/base/main_queue.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace zorvane {

static std::atomic<MainQueue*> currentMain{nullptr};

MainQueue& MainQueue::main() {
  MainQueue* queue = currentMain.load();
  if (queue == nullptr) {
    fprintf(stderr, "zorvane: no main queue was set before use\n");
    abort();
  }
  return *queue;
}

void MainQueue::setMain(MainQueue* queue) { currentMain.store(queue); }

}  // namespace zorvane
