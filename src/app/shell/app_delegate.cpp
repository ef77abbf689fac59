#include "app/shell/app_delegate.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <set>
#include <thread>

#include "app/resolver/drop_resolver.h"
#include "app/resolver/restorer.h"
#include "app/shell/desktop_settings.h"
#include "platform/process_ancestry.h"
#include "core/base/log.h"
#include "core/base/settings.h"
#include "core/goo/ink_tokens.h"

namespace zorvane {

namespace {

constexpr double kRestoreTrayDelay = 1.2;
constexpr double kRestoreTrayPin = 12.0;
constexpr double kMessagePin = 5.0;
constexpr double kDemoTrayDelay = 1.0;
constexpr double kDemoTrayPin = 10.0;
constexpr double kOnboardingDelay = 1.0;
// Ctrl+Alt+Super+B: beside the retire-all key (period) and clear of the voice key.
constexpr uint16_t kBondKey = 11;
constexpr double kRetreatSeconds = 0.55;

std::string describe(Point p) {
  auto number = [](double v) {
    std::string text = std::to_string(v);
    text.erase(text.find_last_not_of('0') + 1);
    if (text.ends_with('.')) text.pop_back();
    return text;
  };
  return "(" + number(p.x) + ", " + number(p.y) + ")";
}

std::string describe(const Rect& r) {
  return "(" + describe(Point{r.x, r.y}) + ", " + describe(Point{r.width, r.height}) + ")";
}

// "<x>,<y>" with exactly two numbers.
std::optional<Point> parsePoint(const std::string& text) {
  auto comma = text.find(',');
  if (comma == std::string::npos || text.find(',', comma + 1) != std::string::npos) return std::nullopt;
  auto number = [](const std::string& part) -> std::optional<double> {
    if (part.empty()) return std::nullopt;
    char* end = nullptr;
    double value = std::strtod(part.c_str(), &end);
    if (end != part.c_str() + part.size() || !std::isfinite(value)) return std::nullopt;
    return value;
  };
  auto x = number(text.substr(0, comma));
  auto y = number(text.substr(comma + 1));
  if (!x || !y) return std::nullopt;
  return Point{*x, *y};
}

// The screen the notch stands on: the primary one, else the first.
std::optional<ScreenInfo> primaryScreen(const std::vector<ScreenInfo>& screens) {
  for (const ScreenInfo& screen : screens)
    if (screen.isPrimary) return screen;
  if (screens.empty()) return std::nullopt;
  return screens.front();
}

std::string parentFolder(const Target& target) {
  auto url = target.fileURL();
  if (!url) return "";
  std::string path = url->path();
  while (path.size() > 1 && path.ends_with('/')) path.pop_back();
  auto slash = path.rfind('/');
  return slash == std::string::npos || slash == 0 ? "/" : path.substr(0, slash);
}

// Single-quoted for the shell.
std::string shellQuoted(const std::string& text) {
  std::string quoted = "'";
  for (char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

// Starts `executable` once the process `pid` has ended (at most 30 s from now), from a
// shell in a session of its own: the new instance must not find this one's peer socket
// open.
bool startAfterExit(int32_t pid, const std::string& executable) {
  std::string script = "i=0; while kill -0 " + std::to_string(pid) +
                       " 2>/dev/null && [ $i -lt 150 ]; do sleep 0.2; i=$((i+1)); done; exec " +
                       shellQuoted(executable);
  return DesktopSettings::startDetached({"/bin/sh", "-c", script});
}

}  // namespace

AppDelegate::AppDelegate(ApplicationContext context)
    : context_(std::move(context)),
      store_(context_.dataDirectory + "/sessions.json"),
      snapshots_(context_.dataDirectory + "/live-pieces.json"),
      activity_(ActivityLog::make(context_.dataDirectory + "/activity.json", context_.queue)),
      skills_(SkillIndex::defaultURL()),
      router_(pieces_, *activity_, context_.clock, [this](const PeerRequest& r) { return provesSender(r); }),
      services_{context_.queue,
                context_.clock,
                context_.surfaces,
                context_.desktop,
                registry_,
                store_,
                *activity_,
                skills_,
                context_.makeAgent,
                context_.dataDirectory + "/sessions",
                context_.dataDirectory + "/audit.log",
                context_.executable,
                context_.ownPID,
                context_.inputMonitor,
                context_.protectedFolders} {
  if (std::find(services_.protectedFolders.begin(), services_.protectedFolders.end(), context_.dataDirectory) ==
      services_.protectedFolders.end())
    services_.protectedFolders.push_back(context_.dataDirectory);
}

bool AppDelegate::provesSender(const PeerRequest& request) const {
  if (!request.senderPID) return false;
  int32_t pid = *request.senderPID;
  // The piece whose agent's process tree holds the sender: a tool server is its
  // agent's child, whatever it claims in `from`.
  const PieceController* owner = nullptr;
  for (const auto& [id, piece] : pieces_) {
    auto root = piece->session() ? piece->session()->processID() : std::nullopt;
    if (root && isProcessDescendant(pid, *root)) {
      owner = piece.get();
      break;
    }
  }
  if (pieces_.count(request.from)) return owner && owner->pieceID() == request.from;
  // The hub and the phone speak through processes this application started, and never
  // through a piece's.
  return !owner && isProcessDescendant(pid, context_.ownPID);
}

AppDelegate::~AppDelegate() {
  for (TimerID timer : timers_) context_.queue.cancel(timer);
  if (context_.hotKey) context_.hotKey->onPress = {};
  if (context_.bondHotKey) context_.bondHotKey->onPress = {};
  if (context_.folderWatcher) context_.folderWatcher->onEvent = {};
  if (keepAwakeHeld_) context_.sleepInhibitor.release();
  // Pieces end their agents as they go.
  pieces_.clear();
}

PieceController* AppDelegate::piece(const UUID& id) const {
  auto it = pieces_.find(id);
  return it == pieces_.end() ? nullptr : it->second.get();
}

// --- Launch and quit ---

void AppDelegate::applicationDidFinishLaunching() {
  if (launched_) return;
  launched_ = true;
  Log::info("launch pid=" + std::to_string(context_.ownPID) +
            " accessibility=" + (context_.accessibilityAvailable && context_.accessibilityAvailable() ? "true" : "false") +
            " screenCapture=" + (context_.screenCaptureAvailable && context_.screenCaptureAvailable() ? "true" : "false") +
            " path=" + context_.executable);
  buildSurfaces();

  std::weak_ptr<AppDelegate> weak = weak_from_this();
  timers_.push_back(context_.queue.every(kKeepAwakeInterval, [weak] {
    if (auto self = weak.lock()) self->keepAwakeTick();
  }));

  // ⌃⌥⌘. on the design's keyboard: Control+Alt+Super+period retires every piece.
  if (context_.hotKey) {
    context_.hotKey->onPress = [weak] {
      if (auto self = weak.lock()) self->retireAll();
    };
    if (auto taken = context_.hotKey->registerKey(47, KeyFlags::control | KeyFlags::option | KeyFlags::command);
        !taken)
      Log::info("retire-all shortcut: " + taken.error());
  }
  if (context_.bondHotKey) {
    context_.bondHotKey->onPress = [weak] {
      if (auto self = weak.lock()) self->bondFocusedWindow();
    };
    if (auto taken = context_.bondHotKey->registerKey(
            kBondKey, KeyFlags::control | KeyFlags::option | KeyFlags::command);
        !taken)
      Log::info("bond shortcut: Ctrl+Alt+Super+B: " + taken.error());
  }
  if (context_.folderWatcher) {
    context_.folderWatcher->onEvent = [weak](const FolderEvent& event) {
      auto self = weak.lock();
      if (!self) return;
      for (const auto& [id, piece] : self->pieces_) piece->noteFolderEvent(event);
    };
  }
  context_.surfaces.onScreensChanged = [weak] {
    if (auto self = weak.lock()) self->relayoutSurfaces();
  };

  Settings settings(context_.settingsPath);
  bool onboarded = settings.boolValue(SettingsKey::onboarded).value_or(false);
  if (onboarding_ && (!onboarded || context_.commandLine.has("--onboarding"))) {
    timers_.push_back(context_.queue.after(kOnboardingDelay, [weak] {
      if (auto self = weak.lock()) self->showOnboarding();
    }));
  }

  pendingRestore_ = snapshots_.load();
  std::string names;
  for (const PieceSnapshot& snapshot : pendingRestore_) names += (names.empty() ? "" : ", ") + snapshot.displayName;
  Log::info("pending restore: [" + names + "]");
  if (context_.commandLine.has("--demo-tray")) {
    timers_.push_back(context_.queue.after(kDemoTrayDelay, [weak] {
      auto self = weak.lock();
      if (!self || !self->tray_) return;
      self->tray_->pinFor(kDemoTrayPin);
      self->tray_->show();
    }));
  }
  if (!pendingRestore_.empty()) {
    timers_.push_back(context_.queue.after(kRestoreTrayDelay, [weak] {
      auto self = weak.lock();
      if (!self || self->pendingRestore_.empty() || !self->tray_) return;
      self->tray_->pinFor(kRestoreTrayPin);
      self->tray_->show();
    }));
  }
  startDiscovery();
}

void AppDelegate::buildSurfaces() {
  // The tray, hub and guide are drawn by their own views; here they are made and placed,
  // and stay hidden until a view gives them content.
  auto trayPanel = context_.surfaces.makePanel({"Zorvane tray", PanelLevel::notch, false, false});
  hub_ = context_.surfaces.makePanel({"Zorvane hub", PanelLevel::notch, false, true});
  auto onboardingPanel = context_.surfaces.makePanel({"Welcome to Zorvane", PanelLevel::notch, false, true});
  tentacleLayer_ = context_.surfaces.makePanel({"tentacles", PanelLevel::overlay, true, false});
  std::weak_ptr<AppDelegate> weak = weak_from_this();
  tentacleLayer_->setInk(PieceController::kActiveRate, [weak](double t, Size) {
    auto self = weak.lock();
    if (!self) return GooScene{};
    // The strands to the bubbles and the idle arms sway slowly; busy or reading pieces
    // send bulges along them.
    bool lively = std::any_of(self->pieces_.begin(), self->pieces_.end(),
                              [t](const auto& entry) { return entry.second->isLively(t); });
    self->tentacleLayer_->setInkRate(lively ? PieceController::kActiveRate : PieceController::kRestRate);
    return self->tentacleScene(t);
  });
  if (auto screen = primaryScreen(context_.surfaces.screens())) {
    notch_ = NotchController::make(context_.surfaces, context_.queue, context_.clock, *screen);
    drag_ = DragLayer::make(context_.surfaces, context_.queue, context_.clock, screen->frame);
    setUpTray(std::move(trayPanel));
    setUpOnboarding(std::move(onboardingPanel));
    wireNotch();
  } else {
    Log::info("no screen: the notch waits for one");
  }
  relayoutSurfaces();
  tentacleLayer_->orderFront();
}

void AppDelegate::wireNotch() {
  std::weak_ptr<AppDelegate> weak = weak_from_this();
  notch_->activity = [weak] {
    auto self = weak.lock();
    return self ? self->notchActivity() : NotchActivity{};
  };
  notch_->onPull = [weak](Point p) {
    auto self = weak.lock();
    if (!self || !self->drag_) return;
    Log::info("pull start at " + describe(p));
    Rect notch = self->notch_->notchRect();
    self->drag_->begin(DragLayer::Mode::pull, {notch.x + notch.width / 2, notch.maxY()});
  };
  notch_->onPullDrag = [weak](Point p) {
    auto self = weak.lock();
    if (self && self->drag_) self->drag_->cursor = p;
  };
  notch_->onPullEnd = [weak](Point p) {
    if (auto self = weak.lock()) self->endPull(p);
  };
  notch_->onTap = [weak] {
    Log::info("notch tap");
    auto self = weak.lock();
    if (!self || (self->onboarding_ && self->onboarding_->panel().isVisible())) return;
    if (self->tray_) self->tray_->hide();
    // The hub's own controller shows it; a tap only puts it away.
    if (self->hub_->isVisible()) self->hub_->orderOut();
  };
  notch_->onLongPress = [weak] {
    Log::info("notch long press");
    auto self = weak.lock();
    if (!self || (self->onboarding_ && self->onboarding_->panel().isVisible())) return;
    if (self->drag_) self->drag_->retract(false);
    if (self->tray_) self->tray_->hide();
  };
  notch_->onLongPressEnd = [] { Log::info("notch long press end"); };
  updateLivePieces();
}

void AppDelegate::setUpTray(std::unique_ptr<GooPanel> panel) {
  tray_ = TrayController::make(context_.queue, context_.clock, context_.surfaces, notch_, std::move(panel));
  std::weak_ptr<AppDelegate> weak = weak_from_this();
  tray_->suppressed = [weak] {
    auto self = weak.lock();
    if (!self) return true;
    return self->hub_->isVisible() || (self->onboarding_ && self->onboarding_->panel().isVisible());
  };
  tray_->refresh = [weak] {
    if (auto self = weak.lock()) self->refreshTray();
  };
  tray_->onRestoreAll = [weak] {
    if (auto self = weak.lock()) self->restoreAll();
  };
  tray_->onDismissRestore = [weak] {
    if (auto self = weak.lock()) self->dismissRestore();
  };
  tray_->onFocusPiece = [weak](const UUID& id) {
    if (auto self = weak.lock()) self->focusPiece(id);
  };
  if (context_.views.tray) context_.views.tray(*tray_);
}

void AppDelegate::setUpOnboarding(std::unique_ptr<GooPanel> panel) {
  OnboardingController::Services services{context_.queue,
                                          context_.clock,
                                          context_.desktop,
                                          context_.fileManager,
                                          context_.settingsPath,
                                          context_.ownPID,
                                          context_.discoverAgents,
                                          context_.missingFlags,
                                          context_.accessibilityAvailable,
                                          context_.screenCaptureAvailable};
  onboarding_ = OnboardingController::make(std::move(services), notch_, std::move(panel));
  std::weak_ptr<AppDelegate> weak = weak_from_this();
  onboarding_->onAgentsChanged = [weak](const std::vector<InstalledAgent>& list) {
    auto self = weak.lock();
    if (!self) return;
    self->agents_ = list;
    if (std::any_of(list.begin(), list.end(), [](const InstalledAgent& agent) { return agent.kind.isDriveable; }))
      self->agentProblem_.reset();
  };
  onboarding_->onFinish = [] { Log::info("onboarding finished"); };
  onboarding_->copyToClipboard = [weak](const std::string& text) {
    auto self = weak.lock();
    if (self && self->copyToClipboard) self->copyToClipboard(text);
  };
  onboarding_->onRelaunch = [weak] {
    if (auto self = weak.lock()) self->relaunch();
  };
  if (context_.views.onboarding) context_.views.onboarding(*onboarding_);
}

void AppDelegate::showOnboarding() {
  if (!onboarding_) return;
  if (hub_->isVisible()) hub_->orderOut();
  if (tray_) tray_->hide();
  onboarding_->show();
}

void AppDelegate::relaunch() {
  if (!quit) {
    Log::info("relaunch: this run can't quit itself");
    return;
  }
  if (!startAfterExit(context_.ownPID, context_.executable)) {
    Log::info("relaunch: couldn't start " + context_.executable);
    return;
  }
  Log::info("relaunch: " + context_.executable + " starts once this one has quit");
  quit();
}

void AppDelegate::refreshTray() {
  if (!tray_) return;
  std::vector<TrayModel::LiveRow> live;
  for (const auto& [id, piece] : pieces_) {
    if (piece->isRetired()) continue;
    live.push_back({id, piece->displayName(), piece->state().mood, piece->state().busy, piece->target().kindLabel()});
  }
  TrayModel& model = tray_->model();
  if (model.live == live && model.restore == pendingRestore_ && model.message == trayMessage_ &&
      model.restoring == restoring_)
    return;
  model.live = std::move(live);
  model.restore = pendingRestore_;
  model.message = trayMessage_;
  model.restoring = restoring_;
  model.notify();
}

void AppDelegate::showTrayMessage(std::string message) {
  Log::info("tray: " + message);
  trayMessage_ = std::move(message);
  refreshTray();
  if (!tray_) return;
  tray_->pinFor(kMessagePin);
  tray_->show();
}

NotchActivity AppDelegate::notchActivity() const {
  NotchActivity activity;
  for (const auto& [id, piece] : pieces_) {
    if (piece->isRetired()) continue;
    activity.live++;
    if (piece->state().busy) activity.working++;
    if (piece->state().mood == Mood::needsApproval) activity.waiting++;
  }
  return activity;
}

void AppDelegate::updateLivePieces() {
  if (notch_) notch_->livePieces = int(pieces_.size());
}

void AppDelegate::relayoutSurfaces() {
  auto primary = primaryScreen(context_.surfaces.screens());
  if (!primary) return;  // no screen at all: nothing to place
  if (notch_) notch_->relayout(*primary);
  if (drag_) {
    // A screen that changes under a drag ends it: the goo goes home.
    if (drag_->isDragging()) drag_->retract(false);
    drag_->relayout(primary->frame);
  }
  Rect notch = notch_ ? notch_->notchRect() : NotchController::geometry(*primary).notch;
  if (tray_) tray_->layout();
  hub_->setFrame({notch.x + notch.width / 2 - 320, notch.maxY(), 640, 520});
  if (onboarding_) onboarding_->place();
  tentacleScreen_ = primary->frame;
  tentacleLayer_->setFrame(tentacleScreen_);
}

void AppDelegate::applicationWillTerminate() {
  if (terminating_) return;
  saveSnapshots();
  terminating_ = true;
  Log::info("terminate: " + std::to_string(pieces_.size()) + " live pieces saved");
  auto live = pieces_;
  for (auto& [id, piece] : live) piece->retire(false);
  pieces_.clear();
  if (keepAwakeHeld_) {
    context_.sleepInhibitor.release();
    keepAwakeHeld_ = false;
  }
  store_.flush();
  activity_->flush();
}

void AppDelegate::retireAll() {
  auto live = pieces_;
  for (auto& [id, piece] : live) piece->retire(true);
  // Scheduled runs stop with the hub, which owns them.
}

// --- Agents ---

std::optional<std::string> AppDelegate::agentProblemFor(
    const std::vector<InstalledAgent>& agents,
    const std::function<std::vector<std::string>(const std::string&)>& missingFlags) {
  const InstalledAgent* first = nullptr;
  for (const InstalledAgent& agent : agents)
    if (agent.kind.isDriveable) {
      first = &agent;
      break;
    }
  if (!first) return "No supported agent found. Install Claude Code: " + AgentKind::claude().installHint;
  if (first->kind.id != AgentKind::claude().id || !missingFlags) return std::nullopt;
  auto missing = missingFlags(first->path);
  if (missing.empty()) return std::nullopt;
  std::string list;
  for (const std::string& flag : missing) list += (list.empty() ? "" : ", ") + flag;
  return first->kind.displayName + " is too old: missing " + list + ". Update it.";
}

void AppDelegate::startDiscovery() {
  if (!context_.discoverAgents) {
    finishDiscovery({}, agentProblemFor({}, nullptr));
    return;
  }
  std::weak_ptr<AppDelegate> weak = weak_from_this();
  auto discover = context_.discoverAgents;
  auto missingFlags = context_.missingFlags;
  MainQueue* queue = &context_.queue;
  std::thread([weak, discover, missingFlags, queue] {
    auto agents = discover();
    auto problem = agentProblemFor(agents, missingFlags);
    queue->post([weak, agents = std::move(agents), problem = std::move(problem)]() mutable {
      if (auto self = weak.lock()) self->finishDiscovery(std::move(agents), std::move(problem));
    });
  }).detach();
}

void AppDelegate::finishDiscovery(std::vector<InstalledAgent> agents, std::optional<std::string> problem) {
  agents_ = std::move(agents);
  agentProblem_ = std::move(problem);
  discovered_ = true;
  std::string list;
  for (const InstalledAgent& agent : agents_) list += (list.empty() ? "" : ", ") + agent.kind.id + "=" + agent.path;
  Log::info("agents: [" + list + "]");
  Settings settings(context_.settingsPath);
  if (agentProblem_ && settings.boolValue(SettingsKey::onboarded).value_or(false) && showAlert)
    showAlert({"Zorvane needs an agent", *agentProblem_, {}});
  runDemonstrationArguments();
}

std::vector<InstalledAgent> AppDelegate::driveableAgents() const {
  std::vector<InstalledAgent> driveable;
  for (const InstalledAgent& agent : agents_)
    if (agent.kind.isDriveable) driveable.push_back(agent);
  return driveable;
}

std::optional<InstalledAgent> AppDelegate::chosenAgent() const {
  auto driveable = driveableAgents();
  Settings settings(context_.settingsPath);
  if (auto selected = settings.stringValue(SettingsKey::selectedAgent))
    for (const InstalledAgent& agent : driveable)
      if (agent.kind.id == *selected) return agent;
  if (driveable.empty()) return std::nullopt;
  return driveable.front();
}

// --- Demonstration arguments ---

void AppDelegate::runDemonstrationArguments() {
  const CommandLine& line = context_.commandLine;
  if (auto at = line.indexOf("--demo-peers")) {
    const auto& args = line.arguments();
    if (*at + 3 < args.size()) {
      std::string dirA = args[*at + 1], dirB = args[*at + 2], message = args[*at + 3];
      for (const std::string& dir : {dirA, dirB}) {
        Target target = Target::folder(URL::fileURL(dir, true));
        auto anchor = std::make_shared<HiddenAnchor>(Rect{-20000, -20000, 64, 64});
        bond(Resolved{target, anchor}, {0, 0}, std::nullopt, true);
      }
      std::shared_ptr<PieceController> a, b;
      std::string keyA = Target::folder(URL::fileURL(dirA, true)).targetKey();
      std::string keyB = Target::folder(URL::fileURL(dirB, true)).targetKey();
      for (const auto& [id, piece] : pieces_) {
        if (piece->target().targetKey() == keyA) a = piece;
        if (piece->target().targetKey() == keyB) b = piece;
      }
      if (a && b && a != b) {
        a->link(*b);
        b->link(*a);
        Log::info("linked " + a->displayName() + " <-> " + b->displayName());
        std::weak_ptr<PieceController> weakA = a;
        timers_.push_back(context_.queue.after(2.0, [weakA, message] {
          if (auto piece = weakA.lock(); piece && !piece->isRetired()) piece->ask(message);
        }));
      } else {
        Log::info("demo-peers: the two folders did not both become pieces");
      }
    } else {
      Log::info("demo-peers: needs two folders and a message");
    }
  }
  if (auto value = line.value("--demo-bond")) {
    if (auto point = parsePoint(*value)) {
      std::set<UUID> before;
      for (const auto& [id, piece] : pieces_) before.insert(id);
      bond(*point);
      // `--demo-ask <question>`: the piece just bonded asks it, as if typed in its bubble.
      if (auto question = line.value("--demo-ask")) {
        for (const auto& [id, piece] : pieces_) {
          if (before.count(id)) continue;
          std::weak_ptr<PieceController> bonded = piece;
          timers_.push_back(context_.queue.after(1.0, [bonded, text = *question] {
            if (auto live = bonded.lock(); live && !live->isRetired()) live->ask(text);
          }));
        }
      }
    } else {
      Log::info("demo-bond: \"" + *value + "\" is not a point; give it as x,y");
    }
  }
}

// --- Bonding ---

void AppDelegate::endPull(Point at) {
  bool reached = false;
  if (drag_ && drag_->isDragging()) {
    if (drag_->mode() == DragLayer::Mode::tentacle) {
      reached = (drag_->tip().position - drag_->origin()).length() > 60;
    } else {
      reached = drag_->pinched().has_value();
    }
  }
  Log::info("pull end at " + describe(at) + " reached=" + (reached ? "true" : "false"));
  if (!reached) {
    if (drag_) drag_->retract(false);
    return;
  }
  size_t before = pieces_.size();
  // The tip lags behind the pointer: the goo lands where the user sees it.
  bond(drag_->tip().position);
  drag_->retract(pieces_.size() > before);
}

void AppDelegate::bond(Point at) {
  if (!mayBond()) return;
  DropResolver resolver(context_.desktop, context_.ownPID);
  auto resolved = resolver.resolve(at);
  if (!resolved) {
    Log::info("bond at " + describe(at) + ": nothing bondable (agents=" + std::to_string(agents_.size()) + ")");
    return;
  }
  bond(std::move(*resolved), at, std::nullopt, false);
}

void AppDelegate::bondFocusedWindow() {
  WindowService& windows = context_.desktop.windows;
  std::optional<uint32_t> focused = windows.activeWindow();
  std::optional<WindowInfo> window = focused ? windows.window(*focused) : std::nullopt;
  if (window && window->ownerPID == context_.ownPID) {
    // One of our panels has the keyboard: the program behind it is meant.
    window.reset();
    for (const WindowInfo& candidate : windows.windows()) {
      if (!candidate.onScreen || candidate.layer != 0 || candidate.ownerPID == context_.ownPID) continue;
      window = candidate;
      break;
    }
  }
  if (!window) {
    Log::info("bond shortcut: no window of another program has the keyboard");
    return;
  }
  if (!mayBond()) return;
  DropResolver resolver(context_.desktop, context_.ownPID);
  auto resolved = resolver.resolveWindow(window->windowID);
  if (!resolved) {
    Log::info("bond shortcut: window " + std::to_string(window->windowID) + " (" + window->title +
              ") can't be bonded");
    return;
  }
  Log::info("bond shortcut: " + resolved->target.targetKey());
  Point centre{window->x + window->width / 2, window->y + window->height / 2};
  bond(std::move(*resolved), centre, std::nullopt, false);
}

bool AppDelegate::mayBond() {
  if (agentProblem_) {
    Log::info("bond blocked: " + *agentProblem_);
    if (showAlert) showAlert({"Zorvane needs an agent", *agentProblem_, {}});
    return false;
  }
  if (context_.accessibilityAvailable && !context_.accessibilityAvailable()) {
    Log::info("bond blocked: Accessibility not granted");
    if (!showAlert) return false;
    const std::string why =
        "Zorvane finds what you drop it on through the desktop's accessibility bus, which isn't reachable. ";
    if (auto command = context_.accessibilitySettings) {
      showAlert({"Zorvane needs Accessibility",
                 why + "Switch on assistive technologies in the accessibility settings, then log out and back in.",
                 [command = *command] {
                   if (!DesktopSettings::startDetached(command)) Log::info("couldn't start " + command[0]);
                 }});
    } else {
      // No settings tool of a known desktop here: the text says what to do instead.
      showAlert({"Zorvane needs Accessibility",
                 why + "Install and start it (the at-spi2-core package), switch on assistive technologies in "
                       "your desktop's accessibility settings, then log out and back in.",
                 {}});
    }
    return false;
  }
  return true;
}

void AppDelegate::bond(Resolved resolved, Point dropPoint, std::optional<SessionRecord> continuing, bool quiet) {
  if (terminating_) return;
  auto agent = chosenAgent();
  if (!agent) return;
  if (!resolved.anchor) resolved.anchor = std::make_shared<HiddenAnchor>(Rect{});
  Log::info("bond " + resolved.target.targetKey() + " frame=" + describe(resolved.anchor->frame()) +
            " icon=" + (resolved.anchor->isIcon() ? "true" : "false"));
  auto [entry, isNew] = registry_.bond(resolved.target);
  if (!isNew) {
    auto existing = pieces_.find(entry.pieceID);
    if (existing != pieces_.end() && !existing->second->isRetired() && existing->second->anchor()->isOnScreen())
      existing->second->showBubble();
    return;
  }
  std::optional<SessionRecord> previous = continuing ? continuing : store_.previous(resolved.target);
  Log::info("previous session for " + resolved.target.targetKey() + ": " +
            (previous ? previous->sessionID.uuidString() + " (" + std::to_string(previous->turns) + " turns)"
                      : std::string("none")));
  bool autoContinue = continuing.has_value();
  std::string key = resolved.target.targetKey();
  Target target = resolved.target;
  auto piece = PieceController::make(services_, entry, std::move(previous), std::move(resolved), dropPoint, *agent,
                                     autoContinue, quiet);
  wire(*piece);
  pieces_[piece->pieceID()] = piece;
  updateLivePieces();
  watchFolderOf(target, true);
  activity_->add(ActivityEvent(ActivityEvent::Kind::piece, piece->displayName(),
                               "Bonded (" + agent->kind.displayName + ")"));
  std::erase_if(pendingRestore_, [&key](const PieceSnapshot& s) { return s.target.targetKey() == key; });
  saveSnapshots();
  refreshTray();
}

void AppDelegate::wire(PieceController& piece) {
  std::weak_ptr<AppDelegate> weak = weak_from_this();
  piece.onRetire = [weak](PieceController& p, bool userInitiated) {
    if (auto self = weak.lock()) self->pieceRetired(p, userInitiated);
  };
  piece.onChanged = [weak](PieceController&) {
    if (auto self = weak.lock()) self->saveSnapshots();
  };
  piece.availableAgents = [weak] {
    auto self = weak.lock();
    return self ? self->driveableAgents() : std::vector<InstalledAgent>{};
  };
  piece.onGrowTentacle = [weak](PieceController&, Point point) {
    auto self = weak.lock();
    if (self && self->drag_) self->drag_->begin(DragLayer::Mode::tentacle, point);
  };
  piece.onTentacleDrag = [weak](Point point) {
    auto self = weak.lock();
    if (self && self->drag_) self->drag_->cursor = point;
  };
  piece.onTentacleDrop = [weak](PieceController& p, Point point) {
    if (auto self = weak.lock()) self->onTentacleDrop(p, point);
  };
  if (context_.views.bubble) context_.views.bubble(piece);
}

void AppDelegate::pieceRetired(PieceController& piece, bool) {
  UUID id = piece.pieceID();
  std::string name = piece.displayName();
  Target target = piece.target();
  auto keep = pieces_.find(id);
  std::shared_ptr<PieceController> alive = keep == pieces_.end() ? nullptr : keep->second;
  pieces_.erase(id);
  updateLivePieces();
  for (auto& [otherID, other] : pieces_) other->unlink(id, name);
  router_.forget(id);
  watchFolderOf(target, false);
  saveSnapshots();
  refreshTray();
}

void AppDelegate::watchFolderOf(const Target& target, bool watch) {
  if (!context_.folderWatcher) return;
  std::string folder = parentFolder(target);
  if (folder.empty()) return;
  if (watch) {
    if (auto watched = context_.folderWatcher->watch(folder); !watched) {
      Log::info("watch " + folder + ": " + watched.error());
      return;
    }
    watchedFolders_[folder]++;
    return;
  }
  auto it = watchedFolders_.find(folder);
  if (it == watchedFolders_.end()) return;
  context_.folderWatcher->unwatch(folder);
  if (--it->second == 0) watchedFolders_.erase(it);
}

void AppDelegate::onTentacleDrop(PieceController& piece, Point point) {
  if (drag_) drag_->retract(false);
  std::weak_ptr<AppDelegate> weak = weak_from_this();
  std::weak_ptr<PieceController> weakPiece = piece.weak_from_this();
  // Resolved once the drag layer is out of the way.
  context_.queue.post([weak, weakPiece, point] {
    auto self = weak.lock();
    auto dropping = weakPiece.lock();
    if (!self || !dropping || dropping->isRetired()) return;
    DropResolver resolver(self->context_.desktop, self->context_.ownPID);
    auto resolved = resolver.resolve(point);
    if (!resolved) return;
    std::string key = resolved->target.targetKey();
    for (const auto& [id, other] : self->pieces_) {
      if (other->target().targetKey() != key || other == dropping) continue;
      dropping->link(*other);
      other->link(*dropping);
      Log::info("linked " + dropping->displayName() + " <-> " + other->displayName());
      return;
    }
    dropping->attach(resolved->target, resolved->anchor);
  });
}

void AppDelegate::focusPiece(const UUID& id) {
  auto found = pieces_.find(id);
  if (found == pieces_.end() || found->second->isRetired() || !found->second->anchor()->isOnScreen()) return;
  found->second->showBubble();
}

std::optional<Target> AppDelegate::targetFor(const SessionRecord& record) const {
  const std::string& key = record.targetKey;
  auto after = [&key](std::string_view prefix) { return key.substr(prefix.size()); };
  if (key.starts_with("file:")) return Target::file(URL::fileURL(after("file:")));
  if (key.starts_with("folder:")) return Target::folder(URL::fileURL(after("folder:"), true));
  if (key.starts_with("tab:")) {
    auto url = URL::parse(after("tab:"));
    if (!url) return std::nullopt;
    if (record.looseKey && record.looseKey->starts_with("tabtitle:")) {
      std::string rest = record.looseKey->substr(9);
      auto colon = rest.find(':');
      if (colon != std::string::npos)
        if (auto app = fromRawValue<BrowserApp>(rest.substr(0, colon)))
          return Target::browserTab(*app, 0, *url, rest.substr(colon + 1));
    }
    // Without a title, the first known browser with a window stands in.
    DropResolver resolver(context_.desktop, context_.ownPID);
    for (const DropResolver::WindowInfo& window : resolver.onScreenWindows()) {
      auto bundle = resolver.bundleID(window.pid);
      if (!bundle) continue;
      if (auto app = fromRawValue<BrowserApp>(*bundle)) return Target::browserTab(*app, 0, *url, "");
    }
    return std::nullopt;
  }
  if (key.starts_with("window:")) {
    std::string rest = after("window:");
    auto colon = rest.rfind(':');
    if (colon == std::string::npos) return std::nullopt;
    std::string bundle = rest.substr(0, colon);
    uint32_t number = 0;
    try {
      unsigned long parsed = std::stoul(rest.substr(colon + 1));
      number = parsed <= UINT32_MAX ? static_cast<uint32_t>(parsed) : 0;
    } catch (...) {
      number = 0;
    }
    std::string title;
    std::string prefix = "window:" + bundle + ":";
    if (record.looseKey && record.looseKey->starts_with(prefix)) title = record.looseKey->substr(prefix.size());
    return Target::window(0, number, bundle, bundle, title);
  }
  return std::nullopt;
}

void AppDelegate::resume(const SessionRecord& record) {
  auto target = targetFor(record);
  if (!target) return;
  std::weak_ptr<AppDelegate> weak = weak_from_this();
  auto restorer = std::make_shared<Restorer>(context_.desktop, context_.fileManager, context_.queue, context_.ownPID);
  restorer->resolve(*target, [weak, record, restorer](std::optional<Resolved> resolved) {
    auto self = weak.lock();
    if (!self) return;
    if (!resolved) {
      self->showTrayMessage(record.displayName + " isn't on screen. Open it, then resume again.");
      return;
    }
    Rect frame = resolved->anchor ? resolved->anchor->frame() : Rect{};
    self->bond(std::move(*resolved), {frame.x + frame.width / 2, frame.minY()}, record, false);
  });
}

void AppDelegate::restoreAll() {
  if (pendingRestore_.empty()) return;
  restoring_ = true;
  trayMessage_.reset();
  refreshTray();
  struct Progress {
    std::vector<std::string> failed;
    size_t remaining = 0;
  };
  auto progress = std::make_shared<Progress>();
  auto list = pendingRestore_;
  progress->remaining = list.size();
  std::weak_ptr<AppDelegate> weak = weak_from_this();
  auto restorer = std::make_shared<Restorer>(context_.desktop, context_.fileManager, context_.queue, context_.ownPID);
  for (const PieceSnapshot& snapshot : list) {
    restorer->resolve(snapshot.target, [weak, snapshot, progress, restorer](std::optional<Resolved> resolved) {
      auto self = weak.lock();
      if (!self) return;
      if (!resolved) {
        progress->failed.push_back(snapshot.displayName);
      } else {
        std::optional<SessionRecord> record;
        for (const SessionRecord& r : self->store_.records())
          if (r.sessionID == snapshot.sessionID) record = r;
        Rect frame = resolved->anchor ? resolved->anchor->frame() : Rect{};
        self->bond(std::move(*resolved), {frame.x + frame.width / 2, frame.minY()}, record, true);
      }
      std::erase(self->pendingRestore_, snapshot);
      if (--progress->remaining > 0) return;
      self->restoring_ = false;
      self->saveSnapshots();
      if (progress->failed.empty()) {
        self->refreshTray();
        return;
      }
      std::string names;
      for (const std::string& name : progress->failed) names += (names.empty() ? "" : ", ") + name;
      self->showTrayMessage("Couldn't find " + names + " on screen. Open it and pick it from the list.");
    });
  }
}

void AppDelegate::dismissRestore() {
  pendingRestore_.clear();
  saveSnapshots();
  refreshTray();
}

void AppDelegate::saveSnapshots() {
  if (terminating_) return;
  std::vector<PieceSnapshot> current;
  std::set<std::string> keys;
  SystemTime now = context_.clock.wallNow();
  for (const auto& [id, piece] : pieces_) {
    if (piece->isRetired()) continue;
    current.push_back({piece->target(), piece->sessionID(), piece->displayName(),
                       std::chrono::floor<std::chrono::seconds>(now)});
    keys.insert(piece->target().targetKey());
  }
  for (const PieceSnapshot& snapshot : pendingRestore_)
    if (!keys.count(snapshot.target.targetKey())) current.push_back(snapshot);
  snapshots_.save(current);
}

// --- Keep awake ---

void AppDelegate::keepAwakeTick() {
  bool busy = std::any_of(pieces_.begin(), pieces_.end(), [](const auto& p) { return p.second->state().busy; });
  Settings settings(context_.settingsPath);
  bool enabled = settings.boolValue(SettingsKey::keepAwake).value_or(true);
  bool want = busy && enabled;
  if (want == keepAwakeHeld_) return;
  if (want) {
    context_.sleepInhibitor.acquire("Zorvane is working on a task");
  } else {
    context_.sleepInhibitor.release();
  }
  keepAwakeHeld_ = want;
}

// --- Drawing the links ---

GooScene AppDelegate::tentacleScene(double t) const {
  GooScene scene = Ink::glossyScene(6);
  for (const auto& [id, piece] : pieces_) {
    auto strands = piece->tentacleCapsules(t);
    scene.capsules.insert(scene.capsules.end(), strands.begin(), strands.end());
  }
  auto links = router_.linkCapsules(t);
  scene.capsules.insert(scene.capsules.end(), links.begin(), links.end());
  for (GooCapsule& capsule : scene.capsules) {
    capsule.a = capsule.a - tentacleScreen_.origin();
    capsule.b = capsule.b - tentacleScreen_.origin();
  }
  return scene;
}

// --- The status menu ---

std::vector<StatusMenuRow> AppDelegate::statusMenu() {
  std::weak_ptr<AppDelegate> weak = weak_from_this();
  std::vector<StatusMenuRow> rows;
  rows.push_back(StatusMenuRow::label("Zorvane — drop an agent on anything"));
  rows.push_back({StatusMenuRow::Kind::item, "Open Zorvane  (long-press the notch)", true, "", "", [weak] {
                    auto self = weak.lock();
                    if (self && self->hub_) self->hub_->orderFront();
                  }});
  rows.push_back(StatusMenuRow::separator());
  rows.push_back(StatusMenuRow::label("AGENTS"));
  for (const AgentKind& kind : AgentKind::all()) {
    const InstalledAgent* installed = nullptr;
    for (const InstalledAgent& agent : agents_)
      if (agent.kind.id == kind.id) installed = &agent;
    if (installed && kind.isDriveable) {
      rows.push_back({StatusMenuRow::Kind::item, "✓ " + kind.displayName, false, installed->path, "", {}});
    } else if (installed) {
      rows.push_back({StatusMenuRow::Kind::item, "○ " + kind.displayName + "  — found, support coming soon", false,
                      installed->path, "", {}});
    } else if (kind.isDriveable) {
      std::string hint = kind.installHint;
      rows.push_back({StatusMenuRow::Kind::item, "✗ " + kind.displayName + "  — not installed", true,
                      "Click to copy: " + hint, "", [weak, hint] {
                        auto self = weak.lock();
                        if (self && self->copyToClipboard) self->copyToClipboard(hint);
                      }});
    }
  }
  rows.push_back(StatusMenuRow::separator());
  rows.push_back(StatusMenuRow::label("PERMISSIONS"));
  bool accessibility = context_.accessibilityAvailable && context_.accessibilityAvailable();
  bool capture = context_.screenCaptureAvailable && context_.screenCaptureAvailable();
  rows.push_back(StatusMenuRow::label(std::string(accessibility ? "✓" : "✗") + " Accessibility bus"));
  rows.push_back(StatusMenuRow::label(std::string(capture ? "✓" : "✗") + " Screen capture (X display)"));
  rows.push_back(StatusMenuRow::label("• File manager and browsers (D-Bus, debugging port)"));
  rows.push_back(StatusMenuRow::separator());
  size_t count = pieces_.size();
  rows.push_back(StatusMenuRow::label(std::to_string(count) + " live piece" + (count == 1 ? "" : "s")));
  rows.push_back({StatusMenuRow::Kind::item, "Retire all pieces  (Ctrl+Alt+Super+.)", true, "", "", [weak] {
                    if (auto self = weak.lock()) self->retireAll();
                  }});
  rows.push_back(StatusMenuRow::separator());
  rows.push_back({StatusMenuRow::Kind::item, "Quit Zorvane", true, "", "Q", [weak] {
                    auto self = weak.lock();
                    if (self && self->quit) self->quit();
                  }});
  return rows;
}

}  // namespace zorvane
