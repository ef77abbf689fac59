// FakeApplicationServices: every desktop service the running application uses, in
// memory, for tests of the application's controllers: the window-control bundle
// (FakeDesktop), the surfaces, and the event and session services.
#pragma once

#include "platform/fake/fake_application_launch_watcher.h"
#include "platform/fake/fake_desktop.h"
#include "platform/fake/fake_file_manager.h"
#include "platform/fake/fake_folder_watcher.h"
#include "platform/fake/fake_hot_key.h"
#include "platform/fake/fake_http_fetch.h"
#include "platform/fake/fake_input_monitor.h"
#include "platform/fake/fake_notices.h"
#include "platform/fake/fake_sleep_inhibitor.h"
#include "platform/fake/fake_surfaces.h"

namespace zorvane {

struct FakeApplicationServices {
  explicit FakeApplicationServices(MainQueue& queue) : fileManager(queue), http(queue) {}

  FakeDesktop desktop;
  FakeSurfaces surfaces;
  FakeFileManager fileManager;
  FakeSleepInhibitor sleepInhibitor;
  FakeHotKey hotKey;
  FakeHotKey bondHotKey;
  FakeFolderWatcher folderWatcher;
  FakeInputMonitor inputMonitor;
  FakeNotices notices;
  FakeHTTPFetch http;
  FakeApplicationLaunchWatcher launchWatcher;
};

}  // namespace zorvane
