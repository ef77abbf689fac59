// OnboardingController: the guide of five steps that hangs below the goo at the first
// start (or with --onboarding). It finds the agent, shows what this desktop must allow
// and how Zorvane is used; finishing it sets the setting "onboarded".
//
// What "allowed" means here:
//   Accessibility     the accessibility bus is reachable and switched on;
//   Screen Recording  a window of another program can be captured;
//   Automation        the file manager answers on D-Bus (org.freedesktop.FileManager1)
//                     and a browser window's front tab can be read (a Chromium-family
//                     browser started with a debugging port).
// While the guide is up, a 1 s poll reads the first two, so a change made outside shows
// within a second. Automation is asked only by `grantAutomation`: it talks to other
// programs. No step waits for anything: the guide can be walked to the end with nothing
// allowed and no agent found.
//
// The model (OnboardingModel) holds every text the view draws. Agent discovery runs on a
// thread of its own and hands its result back on the main queue.
//
//   auto guide = OnboardingController::make(services, notch, std::move(panel));
//   guide->onAgentsChanged = [this](const std::vector<InstalledAgent>& list) { ... };
//   guide->onFinish = [] { ... };
//   guide->show();
//
// Main queue only; timers, the discovery hop and the motion's completion hold the
// controller weakly.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/notch/notch_controller.h"
#include "app/notch/tether_motion.h"
#include "core/agent/agent_kind.h"
#include "core/base/clock.h"
#include "core/base/main_queue.h"
#include "platform/desktop_services.h"
#include "platform/file_manager.h"
#include "platform/surfaces.h"

namespace zorvane {

enum class OnboardingStep { welcome, agent, permissions, howTo, ready };

// One page's fixed texts.
struct OnboardingPage {
  OnboardingStep step;
  std::string title;
  std::vector<std::string> paragraphs;
};

struct OnboardingTip {
  std::string title;
  std::string text;
};

// The row about the agent on the agent step.
struct OnboardingAgentRow {
  enum class Kind { looking, notFound, tooOld, ready };

  Kind kind = Kind::looking;
  std::string title;                     // "Looking for agents…", "Claude Code not found", "Claude Code"
  std::optional<std::string> text;       // the line under the title
  std::optional<std::string> copyText;   // what "Copy" puts on the clipboard; nothing: no "Copy"
  bool checkAgain = false;               // shows "Check again" (`recheck`)
  std::optional<std::string> alsoFound;  // "Also found: Codex, Pi. Support for these is coming."
};

enum class OnboardingAction { grantAX, grantScreen, grantAutomation };

// One row of the permissions step.
struct OnboardingPermissionRow {
  std::string title;
  std::string text;
  bool granted = false;
  std::string image;                   // "checkmark.circle.fill" when granted, else "circle.dashed"
  std::optional<std::string> button;   // "Grant" or "Allow" while not granted
  OnboardingAction action = OnboardingAction::grantAX;
  std::optional<std::string> help;     // what to do, after a try that didn't take
};

struct OnboardingModel {
  static constexpr int kStepCount = 5;

  int step = 0;
  std::vector<InstalledAgent> agents;
  std::vector<std::string> missingFlags;
  bool checking = false;
  bool ax = false;
  bool screen = false;
  bool screenRequested = false;
  std::optional<bool> automation;  // nothing until asked
  // Why the last try didn't take, and what to do; nothing once it is granted.
  std::optional<std::string> axHelp;
  std::optional<std::string> automationHelp;
  std::function<void()> onChange;

  // Every page, in order, and the tips of the "How it works" page.
  static const std::vector<OnboardingPage>& pages();
  static const std::vector<OnboardingTip>& tips();
  [[nodiscard]] const OnboardingPage& page() const;

  [[nodiscard]] OnboardingAgentRow agentRow() const;
  // Accessibility, Screen Recording, Automation.
  [[nodiscard]] std::vector<OnboardingPermissionRow> permissionRows() const;
  // The note beside "Relaunch", once a screen grant was asked for and didn't take.
  [[nodiscard]] std::optional<std::string> relaunchNote() const;
  static constexpr std::string_view relaunchTitle = "Relaunch";

  // The footer: "Back" on every step but the first and the last; the forward button's
  // title ("Get started", "Continue", "Start using Zorvane"), which finishes on the last.
  [[nodiscard]] bool showsBack() const;
  [[nodiscard]] std::string forwardTitle() const;
  [[nodiscard]] bool forwardFinishes() const { return step == kStepCount - 1; }

  void notify() const {
    if (onChange) onChange();
  }
};

class OnboardingController : public std::enable_shared_from_this<OnboardingController> {
 public:
  static constexpr double kPollInterval = 1.0;
  static constexpr double kWidth = 440;
  static constexpr double kHeight = 360;
  static constexpr double kCorner = 22;

  // What the guide reads and asks; every reference must outlive the controller.
  struct Services {
    MainQueue& queue;
    const Clock& clock;
    DesktopServices& desktop;
    FileManager& fileManager;
    std::string settingsPath;
    int32_t ownPID = 0;
    // Finds the agent tools (blocking; run off the main queue). None: finds nothing.
    std::function<std::vector<InstalledAgent>()> discoverAgents;
    // The flags the resident tool at a path lacks (blocking; off the main queue).
    std::function<std::vector<std::string>(const std::string& path)> missingFlags;
    // Whether the accessibility bus answers and is on; it switches the bus on if it can.
    std::function<bool()> accessibilityAvailable;
    // Whether a window of another program can be captured.
    std::function<bool()> screenCaptureAvailable;
  };

  // `panel` is the guide's own (takes the keyboard); the notch is held weakly.
  static std::shared_ptr<OnboardingController> make(Services services,
                                                    const std::shared_ptr<NotchController>& notch,
                                                    std::unique_ptr<GooPanel> panel);
  ~OnboardingController();
  OnboardingController(const OnboardingController&) = delete;
  OnboardingController& operator=(const OnboardingController&) = delete;

  // Set by the application.
  std::function<void()> onFinish;
  std::function<void(const std::vector<InstalledAgent>&)> onAgentsChanged;
  std::function<void(const std::string&)> copyToClipboard;
  // Starts this program again once it has quit, then quits it.
  std::function<void()> onRelaunch;

  // Step 0, looks for agents, places the panel under the band and shows it, starts the
  // poll.
  void show();
  void checkAgents();
  // Places the panel: centred under the band, its top at the band's lower edge.
  void place();
  // The permissions' poll: writes `ax` and `screen` when they changed.
  void poll();

  // What the view calls.
  void next();
  void back();
  void recheck();
  void grantAX();
  void grantScreen();
  void grantAutomation();
  void relaunch();
  void copyInstall();
  void finish();

  [[nodiscard]] const OnboardingModel& model() const { return model_; }
  [[nodiscard]] OnboardingModel& model() { return model_; }
  [[nodiscard]] TetherMotion& motion() const { return *motion_; }
  [[nodiscard]] GooPanel& panel() { return *panel_; }
  [[nodiscard]] const GooPanel& panel() const { return *panel_; }
  [[nodiscard]] bool isPolling() const { return pollTimer_.has_value(); }

 private:
  OnboardingController(Services services, const std::shared_ptr<NotchController>& notch,
                       std::unique_ptr<GooPanel> panel);
  void start();
  void stopPoll();
  void finishCheck(uint64_t generation, std::vector<InstalledAgent> agents, std::vector<std::string> missing);
  // Why automation isn't possible now; nothing when it is.
  std::optional<std::string> automationProblem();

  Services services_;
  std::weak_ptr<NotchController> notch_;
  std::unique_ptr<GooPanel> panel_;
  std::shared_ptr<TetherMotion> motion_;
  OnboardingModel model_;
  std::optional<TimerID> pollTimer_;
  uint64_t checkGeneration_ = 0;
};

}  // namespace zorvane
