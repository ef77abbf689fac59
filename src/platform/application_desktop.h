// ApplicationDesktop: every desktop service the running application uses, opened
// together on the desktop of $DISPLAY: the window-control bundle, the file manager,
// the sleep inhibitor, notices, and the event services (the two global shortcuts,
// folder changes, global clicks). Services the desktop can't give (no key grab, no XInput2)
// are absent and the application does without them; the log says why once.
#pragma once

#include <memory>

#include "core/base/expected.h"
#include "core/base/main_queue.h"
#include "platform/desktop_services.h"
#include "platform/file_manager.h"
#include "platform/folder_watcher.h"
#include "platform/hot_key.h"
#include "platform/input_monitor.h"
#include "platform/notices.h"
#include "platform/sleep_inhibitor.h"

namespace zorvane {

class ApplicationDesktop {
 public:
  virtual ~ApplicationDesktop() = default;
  virtual DesktopServices& services() = 0;
  virtual FileManager& fileManager() = 0;
  virtual SleepInhibitor& sleepInhibitor() = 0;
  virtual Notices& notices() = 0;
  virtual HotKey* hotKey() = 0;
  // A second global shortcut of its own (one key each), for a second action.
  virtual HotKey* bondHotKey() = 0;
  virtual FolderWatcher* folderWatcher() = 0;
  virtual InputMonitor* inputMonitor() = 0;

  // Fails with a one-line reason when no X display can be opened.
  [[nodiscard]] static Expected<std::unique_ptr<ApplicationDesktop>> open(MainQueue& queue);
};

}  // namespace zorvane
