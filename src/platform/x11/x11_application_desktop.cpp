// ApplicationDesktop on Linux: the X11 window-control services, the file manager and
// the sleep inhibitor over D-Bus, inotify, and the X11 key grab and input monitor.
#include "core/base/log.h"
#include "platform/application_desktop.h"
#include "platform/desktop.h"
#include "platform/linux/dbus_notices.h"
#include "platform/linux/dbus_sleep_inhibitor.h"
#include "platform/linux/file_manager_bus.h"
#include "platform/linux/inotify_folder_watcher.h"
#include "platform/x11/x11_display.h"
#include "platform/x11/x11_hot_key.h"
#include "platform/x11/x11_input_monitor.h"

namespace zorvane {
namespace {

template <typename T>
std::unique_ptr<T> orNothing(Expected<std::unique_ptr<T>> made, const char* what) {
  if (made) return std::move(*made);
  Log::info(std::string(what) + " unavailable: " + made.error());
  return nullptr;
}

class X11ApplicationDesktop final : public ApplicationDesktop {
 public:
  X11ApplicationDesktop(std::unique_ptr<Desktop> desktop, MainQueue& queue)
      : desktop_(std::move(desktop)),
        fileManager_(queue),
        sleepInhibitor_(queue),
        notices_(queue),
        hotKey_(orNothing(X11HotKey::create(queue), "global shortcut")),
        bondHotKey_(orNothing(X11HotKey::create(queue), "bond shortcut")),
        folderWatcher_(orNothing(InotifyFolderWatcher::create(queue), "folder watcher")),
        inputMonitor_(orNothing(X11InputMonitor::create(queue), "input monitor")) {}

  DesktopServices& services() override { return desktop_->services(); }
  FileManager& fileManager() override { return fileManager_; }
  SleepInhibitor& sleepInhibitor() override { return sleepInhibitor_; }
  Notices& notices() override { return notices_; }
  HotKey* hotKey() override { return hotKey_.get(); }
  HotKey* bondHotKey() override { return bondHotKey_.get(); }
  FolderWatcher* folderWatcher() override { return folderWatcher_.get(); }
  InputMonitor* inputMonitor() override { return inputMonitor_.get(); }

 private:
  std::unique_ptr<Desktop> desktop_;
  FileManagerBus fileManager_;
  DBusSleepInhibitor sleepInhibitor_;
  DBusNotices notices_;
  std::unique_ptr<X11HotKey> hotKey_;
  // One grab a key: a second shortcut is a second connection of its own.
  std::unique_ptr<X11HotKey> bondHotKey_;
  std::unique_ptr<InotifyFolderWatcher> folderWatcher_;
  std::unique_ptr<X11InputMonitor> inputMonitor_;
};

}  // namespace

Expected<std::unique_ptr<ApplicationDesktop>> ApplicationDesktop::open(MainQueue& queue) {
  if (!X11Display::open()) return Failure{"no X display can be opened (is DISPLAY set?)"};
  return std::unique_ptr<ApplicationDesktop>(std::make_unique<X11ApplicationDesktop>(Desktop::open(), queue));
}

}  // namespace zorvane
