#include "app/shell/onboarding_controller.h"

#include <algorithm>
#include <thread>

#include "app/notch/tether_ink.h"
#include "app/resolver/drop_resolver.h"
#include "core/base/log.h"
#include "core/base/settings.h"
#include "platform/platform_words.h"

namespace zorvane {

namespace {

using PlatformWords::gooHome;

std::string words(std::string_view text) { return std::string(text); }

const std::string kAccessibilityHelp =
    "The accessibility bus can't be reached or won't switch on. Install at-spi2-core, switch on assistive "
    "technologies in your desktop's accessibility settings, then log out and back in.";

const std::string kNoBrowserWindow =
    "No browser window is open to read. Start your browser with --remote-debugging-port=9222 (for example: "
    "chromium --remote-debugging-port=9222), open a page, then try again.";

const std::string kNoFileManager =
    "No file manager answers on D-Bus. Start one that offers the org.freedesktop.FileManager1 interface "
    "(Thunar, Nautilus or PCManFM do), then try again.";

}  // namespace

// --- The model's texts ---

const std::vector<OnboardingPage>& OnboardingModel::pages() {
  static const std::vector<OnboardingPage> pages = {
      {OnboardingStep::welcome,
       "Drop an agent on anything.",
       {"Zorvane is a little creature that lives at " + words(gooHome) +
            ". Pull a piece of it onto a file, a folder, a browser tab or any app window, and an AI agent "
            "latches on and works on it for you.",
        "It runs on the agents you already have (Claude Code, Codex, Pi, or " + words(PlatformWords::onDeviceModel) +
            "), with your own sign-ins."}},
      {OnboardingStep::agent,
       "Your agent",
       {"Zorvane drives an AI coding agent installed on " + words(PlatformWords::thisComputer) + "."}},
      {OnboardingStep::permissions,
       "Permissions",
       {words(PlatformWords::permissionsIntro) + " Zorvane never records anything you don't ask it to."}},
      {OnboardingStep::howTo, "How it works", {}},
      {OnboardingStep::ready,
       "You're set.",
       {"Try it now: drag down from " + words(gooHome) +
            " and drop it on a PDF or a browser tab, then ask \u201cWhat's this about?\u201d",
        "You can open this guide again from " + words(PlatformWords::settingsPlace) + "."}},
  };
  return pages;
}

const std::vector<OnboardingTip>& OnboardingModel::tips() {
  static const std::vector<OnboardingTip> tips = {
      {"Pull & drop", "Drag down from " + words(gooHome) + " and drop the drop on a file, folder, tab or window."},
      {"Ask", "A bubble asks what to do. Answers cite their sources. Risky steps wait for your Allow."},
      {"Tentacles & links",
       "Drag from a piece's knot to more files or windows. Drag onto another piece to let them work together."},
      {"Learn", "Press \u23fa on a piece, do a task once, and Zorvane turns it into a reusable skill."},
      {"Talk", "Hold " + words(PlatformWords::gooBody) + " and speak, or press " + words(PlatformWords::voiceKey) +
                   " anywhere. Speech stays on " + words(PlatformWords::thisComputer) + "."},
      {"Hub & schedules",
       "Tap " + words(PlatformWords::gooBody) + " for chat, activity, skills, schedules and sessions."},
  };
  return tips;
}

const OnboardingPage& OnboardingModel::page() const {
  return pages()[size_t(std::clamp(step, 0, kStepCount - 1))];
}

OnboardingAgentRow OnboardingModel::agentRow() const {
  OnboardingAgentRow row;
  if (checking) {
    row.kind = OnboardingAgentRow::Kind::looking;
    row.title = "Looking for agents\u2026";
    return row;
  }
  const AgentKind& claude = AgentKind::claude();
  auto found = std::find_if(agents.begin(), agents.end(),
                            [&claude](const InstalledAgent& agent) { return agent.kind.id == claude.id; });
  std::string others;
  for (const InstalledAgent& agent : agents)
    if (agent.kind.id != claude.id) others += (others.empty() ? "" : ", ") + agent.kind.displayName;
  if (!others.empty()) row.alsoFound = "Also found: " + others + ". Support for these is coming.";

  if (found == agents.end()) {
    row.kind = OnboardingAgentRow::Kind::notFound;
    row.title = claude.displayName + " not found";
    row.text = "Install it, sign in once, then check again.";
    row.copyText = claude.installHint;
    row.checkAgain = true;
    return row;
  }
  row.title = claude.displayName;
  if (!missingFlags.empty()) {
    row.kind = OnboardingAgentRow::Kind::tooOld;
    row.text = "Too old. Run `claude update` in " + words(PlatformWords::terminal) + ".";
    return row;
  }
  row.kind = OnboardingAgentRow::Kind::ready;
  row.text = "Make sure you've signed in once: open " + words(PlatformWords::terminal) +
             " and run `claude`. You need a paid Claude plan or a Console API key.";
  return row;
}

std::vector<OnboardingPermissionRow> OnboardingModel::permissionRows() const {
  auto row = [](std::string title, std::string text, bool granted, std::string button, OnboardingAction action,
                std::optional<std::string> help) {
    OnboardingPermissionRow made;
    made.title = std::move(title);
    made.text = std::move(text);
    made.granted = granted;
    made.image = granted ? "checkmark.circle.fill" : "circle.dashed";
    if (!granted) made.button = std::move(button);
    made.action = action;
    if (!granted) made.help = std::move(help);
    return made;
  };
  return {
      row("Accessibility", "Find what you drop on, and click or type when you approve.", ax, "Grant",
          OnboardingAction::grantAX, axHelp),
      row("Screen Recording", "Let the agent see the window it's bonded to.", screen, "Grant",
          OnboardingAction::grantScreen, std::nullopt),
      row("Automation",
          "Read the current folder in " + words(PlatformWords::fileManager) + " and the tab in your browser.",
          automation.value_or(false), "Allow", OnboardingAction::grantAutomation, automationHelp),
  };
}

std::optional<std::string> OnboardingModel::relaunchNote() const {
  if (!screenRequested || screen) return std::nullopt;
  return "Turned it on? " + words(PlatformWords::restartNeeded);
}

bool OnboardingModel::showsBack() const { return step > 0 && step < kStepCount - 1; }

std::string OnboardingModel::forwardTitle() const {
  if (step == 0) return "Get started";
  if (forwardFinishes()) return "Start using Zorvane";
  return "Continue";
}

// --- The controller ---

OnboardingController::OnboardingController(Services services, const std::shared_ptr<NotchController>& notch,
                                           std::unique_ptr<GooPanel> panel)
    : services_(std::move(services)),
      notch_(notch),
      panel_(std::move(panel)),
      motion_(TetherMotion::make(services_.queue, services_.clock)) {}

std::shared_ptr<OnboardingController> OnboardingController::make(Services services,
                                                                 const std::shared_ptr<NotchController>& notch,
                                                                 std::unique_ptr<GooPanel> panel) {
  std::shared_ptr<OnboardingController> guide(
      new OnboardingController(std::move(services), notch, std::move(panel)));
  guide->start();
  return guide;
}

OnboardingController::~OnboardingController() { stopPoll(); }

void OnboardingController::start() {
  std::weak_ptr<OnboardingController> weak = weak_from_this();
  panel_->setInk(TetherInk::kFramesPerSecond, [weak](double t, Size size) {
    auto self = weak.lock();
    if (!self) return GooScene{};
    return TetherInk::scene(t, size, kCorner, false, self->motion_.get());
  });
}

void OnboardingController::show() {
  model_.step = 0;
  model_.notify();
  checkAgents();
  poll();
  place();
  panel_->orderFront();
  panel_->makeKey();
  motion_->open();
  stopPoll();
  std::weak_ptr<OnboardingController> weak = weak_from_this();
  pollTimer_ = services_.queue.every(kPollInterval, [weak] {
    if (auto self = weak.lock()) self->poll();
  });
}

void OnboardingController::place() {
  auto notch = notch_.lock();
  if (!notch) return;
  Rect band = notch->notchRect();
  panel_->setFrame({band.x + band.width / 2 - kWidth / 2, band.maxY(), kWidth, kHeight});
}

void OnboardingController::poll() {
  bool ax = services_.accessibilityAvailable && services_.accessibilityAvailable();
  bool screen = services_.screenCaptureAvailable && services_.screenCaptureAvailable();
  if (ax == model_.ax && screen == model_.screen) return;
  model_.ax = ax;
  model_.screen = screen;
  if (ax) model_.axHelp.reset();
  model_.notify();
}

void OnboardingController::stopPoll() {
  if (pollTimer_) services_.queue.cancel(*std::exchange(pollTimer_, std::nullopt));
}

void OnboardingController::checkAgents() {
  model_.checking = true;
  model_.notify();
  uint64_t generation = ++checkGeneration_;
  std::weak_ptr<OnboardingController> weak = weak_from_this();
  if (!services_.discoverAgents) {
    services_.queue.post([weak, generation] {
      if (auto self = weak.lock()) self->finishCheck(generation, {}, {});
    });
    return;
  }
  auto discover = services_.discoverAgents;
  auto missingFlags = services_.missingFlags;
  MainQueue* queue = &services_.queue;
  std::thread([weak, generation, discover, missingFlags, queue] {
    std::vector<InstalledAgent> agents = discover();
    std::vector<std::string> missing;
    // Only the resident tool's flags are checked, and only when it is the first found.
    if (!agents.empty() && agents.front().kind.id == AgentKind::claude().id && missingFlags)
      missing = missingFlags(agents.front().path);
    queue->post([weak, generation, agents = std::move(agents), missing = std::move(missing)]() mutable {
      if (auto self = weak.lock()) self->finishCheck(generation, std::move(agents), std::move(missing));
    });
  }).detach();
}

void OnboardingController::finishCheck(uint64_t generation, std::vector<InstalledAgent> agents,
                                       std::vector<std::string> missing) {
  // A later check supersedes this one.
  if (generation != checkGeneration_) return;
  model_.agents = std::move(agents);
  model_.missingFlags = std::move(missing);
  model_.checking = false;
  model_.notify();
  if (onAgentsChanged) onAgentsChanged(model_.agents);
}

void OnboardingController::next() {
  if (model_.step >= OnboardingModel::kStepCount - 1) return;
  model_.step++;
  model_.notify();
}

void OnboardingController::back() {
  if (model_.step <= 0) return;
  model_.step--;
  model_.notify();
}

void OnboardingController::recheck() { checkAgents(); }

void OnboardingController::grantAX() {
  // Asking switches the bus on where the session lets us.
  bool on = services_.accessibilityAvailable && services_.accessibilityAvailable();
  model_.ax = on;
  if (on) {
    model_.axHelp.reset();
  } else {
    model_.axHelp = kAccessibilityHelp;
  }
  Log::info(std::string("onboarding: accessibility ") + (on ? "on" : "unavailable"));
  model_.notify();
}

void OnboardingController::grantScreen() {
  bool can = services_.screenCaptureAvailable && services_.screenCaptureAvailable();
  model_.screen = can;
  if (!can) model_.screenRequested = true;
  Log::info(std::string("onboarding: screen capture ") + (can ? "works" : "unavailable"));
  model_.notify();
}

void OnboardingController::grantAutomation() {
  std::optional<std::string> problem = automationProblem();
  model_.automation = !problem;
  model_.automationHelp = problem;
  Log::info("onboarding: automation " + (problem ? "unavailable: " + *problem : std::string("works")));
  model_.notify();
}

std::optional<std::string> OnboardingController::automationProblem() {
  std::vector<std::string> problems;
  if (!services_.fileManager.owner()) problems.push_back(kNoFileManager);

  DropResolver resolver(services_.desktop, services_.ownPID);
  std::optional<std::string> browserFailure;
  bool browserReads = false;
  for (const DropResolver::WindowInfo& window : resolver.onScreenWindows()) {
    if (window.layer != 0 || window.pid == services_.ownPID) continue;
    auto bundle = resolver.bundleID(window.pid);
    auto app = bundle ? fromRawValue<BrowserApp>(*bundle) : std::nullopt;
    if (!app) continue;
    auto tab = services_.desktop.browsers.frontTab(
        browserWindowFrom(services_.desktop.windows, window.id, window.pid, *app, window.frame, window.title));
    if (tab) {
      browserReads = true;
      break;
    }
    if (!browserFailure) browserFailure = tab.error();
  }
  if (!browserReads) problems.push_back(browserFailure.value_or(kNoBrowserWindow));

  if (problems.empty()) return std::nullopt;
  std::string text;
  for (const std::string& problem : problems) text += (text.empty() ? "" : " ") + problem;
  return text;
}

void OnboardingController::relaunch() {
  if (onRelaunch) onRelaunch();
}

void OnboardingController::copyInstall() {
  OnboardingAgentRow row = model_.agentRow();
  if (row.copyText && copyToClipboard) copyToClipboard(*row.copyText);
}

void OnboardingController::finish() {
  Settings settings(services_.settingsPath);
  if (auto saved = settings.setBool(SettingsKey::onboarded, true); !saved) Log::info("onboarding: " + saved.error());
  stopPoll();
  motion_->close([weak = weak_from_this()] {
    auto self = weak.lock();
    if (!self) return;
    self->panel_->orderOut();
    if (self->onFinish) self->onFinish();
  });
}

}  // namespace zorvane
