#include "core/hub/activity_log.h"

#include <cstdlib>

namespace zorvane {

ActivityLog::ActivityLog(std::string url, MainQueue& queue) : queue_(queue), store_(std::move(url)) {}

std::shared_ptr<ActivityLog> ActivityLog::make(std::string url, MainQueue& queue) {
  return std::shared_ptr<ActivityLog>(new ActivityLog(std::move(url), queue));
}

ActivityLog& ActivityLog::shared() {
  // Deliberately never destroyed: posts and writers may still reach it while static
  // objects are torn down at exit. The exit handler waits for the last save instead.
  static ActivityLog* instance = [] {
    auto* keeper = new std::shared_ptr<ActivityLog>(make(ActivityStore::defaultURL(), MainQueue::main()));
    std::atexit([] { ActivityLog::shared().flush(); });
    return keeper->get();
  }();
  return *instance;
}

void ActivityLog::add(ActivityEvent event) {
  if (queue_.isCurrent()) {
    store(std::move(event));
    return;
  }
  queue_.post([weak = weak_from_this(), event = std::move(event)]() mutable {
    if (auto self = weak.lock()) self->store(std::move(event));
  });
}

void ActivityLog::store(ActivityEvent event) {
  store_.add(std::move(event));
  if (onChange) onChange();
}

}  // namespace zorvane
