// The tray and the first-start guide, each under a notch on the in-memory desktop and a
// fake clock, as their controller tests and their adapter tests drive them.
//
// TrayWorld: a TrayController on FakeSurfaces' primary screen; `pass` runs every tick.
// GuideWorld: an OnboardingController in a temporary home; `pass` moves time at once.
// The permissions are what the test sets in `ax` and `screen`; discovery answers `found`
// and `missingFlags` answers `missing`, both read on the guide's own discovery thread
// (hence the mutex, which `setAgents` takes); the install command it copies lands in
// `copied`.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "app/notch/tray_controller.h"
#include "app/shell/onboarding_controller.h"
#include "platform/fake/fake_application_services.h"
#include "support/fake_time.h"
#include "support/test_support.h"

namespace zorvane::testing {

struct TrayWorld : FakeTime {
  TrayWorld() : FakeTime(TrayController::kTickInterval) {}
  FakeSurfaces surfaces;
  std::shared_ptr<NotchController> notch =
      NotchController::make(surfaces, queue, *clock, surfaces.screenList.front(), 7);
  std::shared_ptr<TrayController> tray =
      TrayController::make(queue, *clock, surfaces, notch,
                           surfaces.makePanel({"Zorvane tray", PanelLevel::notch, false, false}));
  std::shared_ptr<FakePanel::Record> panel = surfaces.named("Zorvane tray").front();

  Point overNotch() const {
    Rect band = notch->notchRect();
    return {band.x + band.width / 2, band.y + band.height / 2};
  }
  static constexpr Point kAway{100, 700};
};

struct GuideWorld : FakeTime {
  TempHome home;
  FakeApplicationServices fakes{queue};
  std::atomic<bool> ax = false, screen = false;
  std::mutex mutex;
  std::vector<InstalledAgent> found;
  std::vector<std::string> missing;
  std::vector<std::string> copied;
  std::shared_ptr<NotchController> notch =
      NotchController::make(fakes.surfaces, queue, *clock, fakes.surfaces.screenList.front(), 7);
  std::shared_ptr<OnboardingController> guide;
  std::shared_ptr<FakePanel::Record> panel;

  GuideWorld() : FakeTime(0) {
    auto locked = [this](auto& value) {
      std::lock_guard lock(mutex);
      return value;
    };
    OnboardingController::Services services{
        queue,
        *clock,
        fakes.desktop.services,
        fakes.fileManager,
        settingsPath(),
        4242,
        [this, locked] { return locked(found); },
        [this, locked](const std::string&) { return locked(missing); },
        [this] { return ax.load(); },
        [this] { return screen.load(); }};
    guide = OnboardingController::make(
        std::move(services), notch,
        fakes.surfaces.makePanel({"Welcome to Zorvane", PanelLevel::notch, false, true}));
    panel = fakes.surfaces.named("Welcome to Zorvane").front();
    guide->copyToClipboard = [this](const std::string& text) { copied.push_back(text); };
  }

  static InstalledAgent agent(const AgentKind& kind) { return {kind, "/usr/local/bin/" + kind.id}; }
  std::string settingsPath() const { return home.path() + "/config/settings.json"; }
  // What discovery finds from now on; the guide looks again on its next check.
  void setAgents(std::vector<InstalledAgent> agents, std::vector<std::string> flags = {}) {
    std::lock_guard lock(mutex);
    found = std::move(agents);
    missing = std::move(flags);
  }
  void waitForAgents() {
    ASSERT_TRUE(queue.runUntil([&] { return !guide->model().checking; }, 10));
  }
};

}  // namespace zorvane::testing
