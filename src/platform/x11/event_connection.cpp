#include "platform/x11/event_connection.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <map>

#include "core/base/log.h"

// Last: it defines min and max as macros. It declares the error converters' wire type.
#include <X11/Xlibint.h>
#undef min
#undef max

namespace zorvane {

namespace {

std::mutex& registryMutex() {
  static std::mutex mutex;
  return mutex;
}

// The open connections, so the hooks (which get only the Display) find their owner.
std::map<Display*, EventConnection*>& registry() {
  static std::map<Display*, EventConnection*> connections;
  return connections;
}

EventConnection* ownerOf(Display* display) {
  std::lock_guard lock(registryMutex());
  auto found = registry().find(display);
  return found == registry().end() ? nullptr : found->second;
}

constexpr size_t kMaxRecordedErrors = 64;

}  // namespace

struct EventConnectionHooks {
  // Xlib turns each error from the wire into an event through the display's converter
  // for that error code; a converter that answers False drops the error before the
  // process-wide handler sees it. Runs on the thread that made the failing call.
  static Bool convertError(Display* display, XErrorEvent* event, xError* wire) {
    EventConnection* owner = ownerOf(display);
    if (!owner) return True;
    // Bounded, keeping the newest (the ones a caller is about to ask for).
    if (owner->errors_.size() >= kMaxRecordedErrors) owner->errors_.erase(owner->errors_.begin());
    owner->errors_.push_back({wire->errorCode, wire->majorCode, event->serial});
    return False;
  }

  // Extension libraries set their own converters when they first meet the connection,
  // so this is run again once they have.
  static void install(Display* display) {
    for (int code = 1; code < 256; ++code) XESetWireToError(display, code, convertError);
  }
};

Expected<std::unique_ptr<EventConnection>> EventConnection::open(std::string name,
                                                                 const std::string& displayName) {
  const char* chosen = displayName.empty() ? std::getenv("DISPLAY") : displayName.c_str();
  if (!chosen || !*chosen) return Failure{name + ": no display (DISPLAY is not set)"};
  Display* display = XOpenDisplay(chosen);
  if (!display) return Failure{name + ": couldn't open the display " + chosen};
  return std::unique_ptr<EventConnection>(new EventConnection(std::move(name), display));
}

EventConnection::EventConnection(std::string name, Display* display) : name_(std::move(name)), display_(display) {
  wakeFD_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  {
    std::lock_guard lock(registryMutex());
    registry()[display_] = this;
  }
  EventConnectionHooks::install(display_);
}

EventConnection::~EventConnection() {
  stopping_ = true;
  wake();
  if (thread_.joinable()) thread_.join();
  // Work still queued never ran; its callers have timed out or gone.
  if (!lost_) XCloseDisplay(display_);  // after a loss Xlib may not touch the socket again
  {
    std::lock_guard lock(registryMutex());
    registry().erase(display_);
  }
  if (wakeFD_ >= 0) ::close(wakeFD_);
}

void EventConnection::start() {
  if (thread_.joinable()) return;
  EventConnectionHooks::install(display_);
  thread_ = std::thread([this] { run(); });
}

void EventConnection::wake() {
  uint64_t one = 1;
  [[maybe_unused]] ssize_t written = ::write(wakeFD_, &one, sizeof one);
}

Expected<void> EventConnection::call(std::function<void(Display*)> work, double timeoutSeconds) {
  if (lost_) return Failure{name_ + ": the connection to the X server was lost"};
  if (!thread_.joinable() || isReaderThread()) {
    work(display_);
    return ok();
  }
  auto item = std::make_shared<Work>();
  item->function = std::move(work);
  {
    std::lock_guard lock(workMutex_);
    work_.push_back(item);
  }
  wake();
  std::unique_lock lock(item->mutex);
  if (!item->done.wait_for(lock, std::chrono::duration<double>(timeoutSeconds), [&] { return item->finished; }))
    return Failure{name_ + ": the X connection's thread didn't answer"};
  if (!item->ran) return Failure{name_ + ": the X connection is closed"};
  return ok();
}

void EventConnection::runPendingWork() {
  for (;;) {
    std::shared_ptr<Work> item;
    {
      std::lock_guard lock(workMutex_);
      if (work_.empty()) return;
      item = std::move(work_.front());
      work_.pop_front();
    }
    bool ran = !lost_;
    if (ran) item->function(display_);
    std::lock_guard lock(item->mutex);
    item->ran = ran;
    item->finished = true;
    item->done.notify_all();
  }
}

std::vector<EventConnectionError> EventConnection::errorSince(unsigned long mark) {
  XSync(display_, False);
  std::vector<EventConnectionError> since;
  for (const auto& error : errors_)
    if (error.serial >= mark) since.push_back(error);
  errors_.clear();
  return since;
}

void EventConnection::run() {
  const int xFD = ConnectionNumber(display_);
  while (!stopping_) {
    runPendingWork();
    if (stopping_ || lost_) break;
    // Events may already wait in Xlib's queue (read while waiting for a reply), so the
    // queue is drained before the socket is polled.
    if (XPending(display_) > 0) {
      while (!lost_ && XPending(display_) > 0) {
        XEvent event;
        XNextEvent(display_, &event);
        if (onEvent) onEvent(event);
      }
      if (afterEvents && !lost_) afterEvents();
      continue;
    }
    if (lost_) break;
    XFlush(display_);
    // POLLRDHUP: a display over TCP that went away reads as data (EOF), not a hang-up.
    pollfd fds[2] = {{xFD, POLLIN | POLLRDHUP, 0}, {wakeFD_, POLLIN, 0}};
    if (::poll(fds, 2, -1) < 0) continue;  // EINTR
    if (fds[1].revents & POLLIN) {
      uint64_t count = 0;
      [[maybe_unused]] ssize_t read = ::read(wakeFD_, &count, sizeof count);
    }
    // The server went away. Xlib's answer to reading a closed connection is to end the
    // process, so the connection is not touched again.
    if (fds[0].revents & (POLLHUP | POLLERR | POLLRDHUP)) lost_ = true;
  }
  if (lost_) Log::info(name_ + ": the connection to the X server was lost; no more events");
  // Whoever waits for work that will never run now is let go.
  std::lock_guard lock(workMutex_);
  for (auto& item : work_) {
    std::lock_guard itemLock(item->mutex);
    item->finished = true;
    item->done.notify_all();
  }
  work_.clear();
}

}  // namespace zorvane
