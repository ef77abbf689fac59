#include "platform/x11/x11_application_launch_watcher.h"

#include <X11/Xatom.h>
#include <X11/Xutil.h>
#include <X11/extensions/XRes.h>

#include <optional>
#include <set>
#include <vector>

#include "core/base/log.h"
#include "platform/linux/application_identity.h"
#include "platform/linux/launched_processes.h"
#include "platform/x11/event_connection.h"

namespace zorvane {

struct X11ApplicationLaunchWatcher::Impl {
  MainQueue& queue;
  std::unique_ptr<EventConnection> connection;
  X11ApplicationLaunchWatcher* owner = nullptr;
  // Main queue.
  std::shared_ptr<int> alive = std::make_shared<int>(0);
  // What threads hold: a copy made before they start, so the owner can drop `alive`
  // while they run.
  const std::weak_ptr<int> aliveToken = alive;
  uint64_t generation = 0;

  // Set before the reader thread starts.
  Atom clientList = 0, wmPID = 0, gtkApplicationID = 0, utf8String = 0;
  bool haveXRes = false;

  // Reader thread.
  uint64_t readerGeneration = 0;  // 0 while not watching
  std::set<Window> windows;       // the client list as last read
  // The processes seen so far: by pid and start time where the pid is known, by the
  // X client's resource base for the others.
  LaunchedProcesses processes;
  std::optional<ApplicationIdentity> identity;

  Impl(MainQueue& queue, std::unique_ptr<EventConnection> connection)
      : queue(queue), connection(std::move(connection)) {}

  void setUp(Display* display) {
    const char* names[] = {"_NET_CLIENT_LIST", "_NET_WM_PID", "_GTK_APPLICATION_ID", "UTF8_STRING"};
    Atom atoms[4] = {};
    XInternAtoms(display, const_cast<char**>(names), 4, False, atoms);
    clientList = atoms[0];
    wmPID = atoms[1];
    gtkApplicationID = atoms[2];
    utf8String = atoms[3];
    int event = 0, error = 0, major = 1, minor = 2;
    haveXRes = XResQueryExtension(display, &event, &error) && XResQueryVersion(display, &major, &minor) &&
               (major > 1 || (major == 1 && minor >= 2));
  }

  std::vector<Window> readClientList(Display* display) {
    std::vector<Window> list;
    Atom type = 0;
    int format = 0;
    unsigned long count = 0, after = 0;
    unsigned char* data = nullptr;
    if (XGetWindowProperty(display, connection->root(), clientList, 0, 65536, False, XA_WINDOW, &type, &format,
                           &count, &after, &data) == Success &&
        data && type == XA_WINDOW && format == 32) {
      auto* items = reinterpret_cast<unsigned long*>(data);
      list.assign(items, items + count);
    }
    if (data) XFree(data);
    return list;
  }

  std::optional<std::string> textProperty(Display* display, Window window, Atom property, Atom type) {
    Atom actual = 0;
    int format = 0;
    unsigned long count = 0, after = 0;
    unsigned char* data = nullptr;
    std::optional<std::string> text;
    if (XGetWindowProperty(display, window, property, 0, 1024, False, type, &actual, &format, &count, &after,
                           &data) == Success &&
        data && actual == type && format == 8)
      text = std::string(reinterpret_cast<char*>(data), count);
    if (data) XFree(data);
    return text;
  }

  // The process of a window and the key that tells it apart; nothing when the window is
  // gone already.
  std::optional<std::pair<int32_t, std::string>> processOf(Display* display, Window window) {
    unsigned long mark = connection->errorMark();
    int32_t pid = 0;
    Atom type = 0;
    int format = 0;
    unsigned long count = 0, after = 0;
    unsigned char* data = nullptr;
    if (XGetWindowProperty(display, window, wmPID, 0, 1, False, XA_CARDINAL, &type, &format, &count, &after,
                           &data) == Success &&
        data && type == XA_CARDINAL && format == 32 && count == 1)
      pid = static_cast<int32_t>(*reinterpret_cast<unsigned long*>(data));
    if (data) XFree(data);
    unsigned long clientBase = 0;
    if (haveXRes) {
      XResClientIdSpec spec{window, XRES_CLIENT_ID_PID_MASK | XRES_CLIENT_ID_XID_MASK};
      long valueCount = 0;
      XResClientIdValue* values = nullptr;
      if (XResQueryClientIds(display, 1, &spec, &valueCount, &values) == Success) {
        for (long i = 0; i < valueCount; ++i) {
          if (XResGetClientIdType(&values[i]) == XRES_CLIENT_ID_PID && pid <= 0) pid = XResGetClientPid(&values[i]);
          if (XResGetClientIdType(&values[i]) == XRES_CLIENT_ID_XID) clientBase = values[i].spec.client;
        }
        XResClientIdsDestroy(valueCount, values);
      }
    }
    for (const auto& error : connection->errorSince(mark))
      if (error.code == BadWindow) return std::nullopt;
    if (pid > 0) {
      if (auto key = LaunchedProcesses::processKey(pid)) return std::pair{pid, *key};
      return std::nullopt;  // the process ended already
    }
    return std::pair{0, LaunchedProcesses::clientKey(clientBase ? clientBase : window)};
  }

  ApplicationInfo applicationOf(Display* display, Window window, int32_t pid) {
    WindowIdentity which;
    XClassHint hint{};
    if (XGetClassHint(display, window, &hint)) {
      if (hint.res_name) which.resName = hint.res_name;
      if (hint.res_class) which.resClass = hint.res_class;
      if (hint.res_name) XFree(hint.res_name);
      if (hint.res_class) XFree(hint.res_class);
    }
    which.gtkApplicationID = textProperty(display, window, gtkApplicationID, utf8String).value_or("");
    if (!identity) identity.emplace(ApplicationIdentity::fromEnvironment());
    return identity->identify(which, pid);
  }

  Expected<void> watch(Display* display, uint64_t id) {
    if (readerGeneration != 0) {
      readerGeneration = id;
      return ok();
    }
    unsigned long mark = connection->errorMark();
    // Listen first, then read: a change between the two is then seen, not missed.
    XSelectInput(display, connection->root(), PropertyChangeMask);
    if (auto errors = connection->errorSince(mark); !errors.empty())
      return Failure{"launch watcher: the X server refused to report the root window's changes"};
    readerGeneration = id;
    windows.clear();
    processes.reset();
    for (Window window : readClientList(display)) {
      windows.insert(window);
      if (auto process = processOf(display, window)) processes.add(process->second, process->first);
    }
    return ok();
  }

  void unwatch(Display* display) {
    readerGeneration = 0;
    XSelectInput(display, connection->root(), NoEventMask);
    XSync(display, False);
    windows.clear();
    processes.clear();
  }

  // Reader thread.
  void handle(XEvent& event) {
    if (readerGeneration == 0 || event.type != PropertyNotify) return;
    if (event.xproperty.window != connection->root() || event.xproperty.atom != clientList) return;
    Display* display = connection->display();
    std::vector<Window> list = readClientList(display);
    std::set<Window> now(list.begin(), list.end());
    processes.forgetEnded();
    for (Window window : list) {  // in the order the window manager took them
      if (windows.count(window)) continue;
      auto process = processOf(display, window);
      if (!process || !processes.add(process->second, process->first)) continue;
      ApplicationLaunch launch{process->first, applicationOf(display, window, process->first),
                               static_cast<uint32_t>(window)};
      queue.post([weak = aliveToken, owner = owner, id = readerGeneration, launch] {
        if (weak.expired() || owner->impl_->generation != id) return;
        auto callback = owner->onLaunch;  // a copy: it may drop the owner
        if (callback) callback(launch);
      });
    }
    windows = std::move(now);
  }
};

Expected<std::unique_ptr<X11ApplicationLaunchWatcher>> X11ApplicationLaunchWatcher::create(
    MainQueue& queue, const std::string& displayName) {
  auto connection = EventConnection::open("launch watcher", displayName);
  if (!connection) return Failure{connection.error()};
  auto impl = std::make_unique<Impl>(queue, std::move(*connection));
  impl->setUp(impl->connection->display());
  auto watcher = std::unique_ptr<X11ApplicationLaunchWatcher>(new X11ApplicationLaunchWatcher(std::move(impl)));
  Impl* state = watcher->impl_.get();
  state->connection->onEvent = [state](XEvent& event) { state->handle(event); };
  state->connection->start();
  return watcher;
}

X11ApplicationLaunchWatcher::X11ApplicationLaunchWatcher(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {
  impl_->owner = this;
}

X11ApplicationLaunchWatcher::~X11ApplicationLaunchWatcher() {
  impl_->alive.reset();
  impl_->connection.reset();  // joins the reader thread before the state it uses goes
}

Expected<void> X11ApplicationLaunchWatcher::start() {
  uint64_t id = ++impl_->generation;
  auto result = std::make_shared<std::optional<Expected<void>>>();
  Impl* state = impl_.get();
  auto called = state->connection->call([state, result, id](Display* display) { *result = state->watch(display, id); });
  if (!called) return called;
  return result->value_or(Failure{"launch watcher: no answer"});
}

void X11ApplicationLaunchWatcher::stop() {
  ++impl_->generation;
  Impl* state = impl_.get();
  if (auto called = state->connection->call([state](Display* display) { state->unwatch(display); }); !called)
    Log::info(called.error());
}

}  // namespace zorvane
