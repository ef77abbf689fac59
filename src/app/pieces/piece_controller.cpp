#include "app/pieces/piece_controller.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cmath>

#include "app/pieces/audit_log.h"
#include "app/resolver/drop_resolver.h"
#include "core/agent/agent_launch.h"
#include "core/agent/friendly_error.h"
#include "core/agent/friendly_status.h"
#include "core/agent/session_launch.h"
#include "core/base/file_io.h"
#include "core/base/log.h"
#include "core/base/utf8.h"
#include "core/geometry/screen_geometry.h"
#include "core/goo/ink_tokens.h"
#include "core/goo/shapes.h"
#include "core/mcp/control_scope.h"

namespace zorvane {

namespace {

constexpr double kRenameScanInterval = 1.0;
constexpr size_t kRenameScanLimit = 4000;
constexpr size_t kTranscriptLimit = 400;
constexpr size_t kRecentlyAddedLimit = 64;

std::optional<std::pair<uint64_t, uint64_t>> fileIdentity(const std::string& path) {
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) return std::nullopt;
  return std::make_pair(static_cast<uint64_t>(info.st_dev), static_cast<uint64_t>(info.st_ino));
}

bool isDirectory(const std::string& path) {
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

std::string parentOf(const std::string& path) {
  std::string trimmed = path;
  while (trimmed.size() > 1 && trimmed.ends_with('/')) trimmed.pop_back();
  auto slash = trimmed.rfind('/');
  if (slash == std::string::npos || slash == 0) return "/";
  return trimmed.substr(0, slash);
}

// A depth-first look below `folder` for the entry with this identity, visiting at most
// `budget` entries in all.
std::optional<std::string> findIdentity(const std::string& folder, uint64_t device, uint64_t inode, int depth,
                                        size_t& budget) {
  DIR* dir = ::opendir(folder.c_str());
  if (dir == nullptr) return std::nullopt;
  std::vector<std::string> subfolders;
  std::optional<std::string> found;
  while (dirent* entry = ::readdir(dir)) {
    std::string name = entry->d_name;
    if (name == "." || name == "..") continue;
    if (budget == 0) break;
    budget--;
    std::string path = folder + (folder.ends_with('/') ? "" : "/") + name;
    struct stat info {};
    if (::lstat(path.c_str(), &info) != 0) continue;
    if (static_cast<uint64_t>(info.st_dev) == device && static_cast<uint64_t>(info.st_ino) == inode) {
      found = path;
      break;
    }
    if (S_ISDIR(info.st_mode) && depth > 0) subfolders.push_back(path);
  }
  ::closedir(dir);
  if (found) return found;
  for (const std::string& sub : subfolders) {
    if (budget == 0) break;
    if (auto hit = findIdentity(sub, device, inode, depth - 1, budget)) return hit;
  }
  return std::nullopt;
}

// The second line of a message, where `PeerIPC::inbound` puts the sender's words.
std::string secondLine(const std::string& text) {
  auto first = text.find('\n');
  if (first == std::string::npos) return "";
  auto second = text.find('\n', first + 1);
  return text.substr(first + 1, second == std::string::npos ? std::string::npos : second - first - 1);
}

std::string oneLine(std::string text) {
  std::replace(text.begin(), text.end(), '\n', ' ');
  return text;
}

std::optional<std::string> textAt(const JSONObject& input, const char* key) {
  auto it = input.find(key);
  if (it == input.end() || !it->second.is_string()) return std::nullopt;
  return it->second.get<std::string>();
}

}  // namespace

std::shared_ptr<PieceController> PieceController::make(PieceServices& services, const Registry::Entry& entry,
                                                       std::optional<SessionRecord> previous, Resolved resolved,
                                                       Point dropPoint, InstalledAgent agent, bool autoContinue,
                                                       bool quiet) {
  std::shared_ptr<PieceController> piece(
      new PieceController(services, entry, std::move(resolved), dropPoint, std::move(agent)));
  piece->init(std::move(previous), autoContinue, quiet);
  return piece;
}

PieceController::PieceController(PieceServices& services, const Registry::Entry& entry, Resolved resolved,
                                 Point dropPoint, InstalledAgent agent)
    : services_(services),
      pieceID_(entry.pieceID),
      sessionID_(entry.sessionID),
      target_(std::move(resolved.target)),
      anchor_(resolved.anchor ? std::move(resolved.anchor) : std::make_shared<HiddenAnchor>(Rect{})),
      agent_(std::move(agent)),
      look_(anchor_, dropPoint, services.clock.wallSeconds()),
      windowLayout_(services.desktop.windows, services.queue, services.surfaces),
      bondTime_(services.clock.wallSeconds()) {}

PieceController::~PieceController() {
  // A piece dropped without retiring (the application tearing down) still ends its
  // agent: no child outlives its piece.
  if (session_) {
    session_->onEvent = {};
    session_->terminate();
  }
  for (auto timer : {timer_, knotHold_, pickTimeout_})
    if (timer) services_.queue.cancel(*timer);
  if (picking_ && services_.inputMonitor) services_.inputMonitor->stop();
}

void PieceController::init(std::optional<SessionRecord> previous, bool autoContinue, bool quiet) {
  state_.targetName = target_.displayName();
  state_.agentName = agent_.kind.displayName;
  auto window = target_.controlWindow();
  state_.canLearn = window.has_value();
  if (window) state_.skills = services_.skills.skillsForBundle(window->bundleID);

  overlay_ = services_.surfaces.makePanel({"goo overlay", PanelLevel::overlay, true, false});
  handle_ = services_.surfaces.makePanel({"knot", PanelLevel::handle, false, false});
  bubble_ = services_.surfaces.makePanel({state_.targetName, PanelLevel::bubble, false, true});

  if (auto url = target_.fileURL())
    if (auto id = fileIdentity(url->path())) identity_ = FileIdentity{id->first, id->second};

  buildViews();

  if (!previous) {
    startSession(std::nullopt);
  } else {
    state_.resumeOffer = std::move(previous);
    if (autoContinue) chooseResume(true);
  }

  layout();
  overlay_->orderFront();
  handle_->orderFront();

  std::weak_ptr<PieceController> weak = weak_from_this();
  timer_ = services_.queue.every(kTickInterval, [weak] {
    if (auto self = weak.lock()) self->tick();
  });

  // A window is first given room beside it for the docked bubble, which then opens; an
  // icon's bubble opens once the goo has covered it.
  if (!anchor_->isIcon()) {
    windowLayout_.makeRoom(anchor_, kDockRoom, [weak, quiet] {
      if (auto self = weak.lock(); self && !quiet) self->showBubble();
    });
  } else if (!quiet) {
    services_.queue.after(0.46, [weak] {
      if (auto self = weak.lock()) self->showBubble();
    });
  }
  changed();
}

void PieceController::buildViews() {
  overlay_->setFrame(anchor_->frame().grownBy(PossessionLook::kMargin));
  std::weak_ptr<PieceController> weak = weak_from_this();
  overlay_->setInk(kActiveRate, [weak](double t, Size) {
    auto self = weak.lock();
    if (!self) return GooScene{};
    self->look_.mood = self->state_.mood;
    self->overlay_->setInkRate(self->isLively(t) ? kActiveRate : kRestRate);
    return self->look_.scene(t);
  });
  handle_->setInk(kActiveRate, [weak](double t, Size) {
    auto self = weak.lock();
    if (!self) return GooScene{};
    self->handle_->setInkRate(self->isLively(t) ? kActiveRate : kRestRate);
    return self->handleScene(t);
  });
  handle_->setPointerHandlers({
      [weak](Point p) {
        if (auto self = weak.lock()) self->knotDown(p);
      },
      [weak](Point p) {
        if (auto self = weak.lock()) self->knotDrag(p);
      },
      [weak](Point p, bool moved) {
        if (auto self = weak.lock()) self->knotUp(p, moved);
      },
  });
}

bool PieceController::isLively(double t) const {
  if (retired_ || state_.mood != Mood::idle || state_.busy) return true;
  if (t - bondTime_ < kFloodSeconds * Ink::Timing::slowMotion()) return true;
  if (look_.ripple && t - *look_.ripple < 1.6) return true;
  for (const Tentacle& tentacle : tentacles_)
    if (tentacle.readingSince || t < tentacle.flareUntil) return true;
  return false;
}

GooScene PieceController::handleScene(double t) const {
  GooScene scene = Ink::glossyScene(4);
  double half = kHandleSize / 2;
  scene.blobs.push_back({{half, half}, 9.0 * Shapes::moodParams(state_.mood, t).throb});
  return scene;
}

std::string PieceController::sessionDir() const {
  return services_.sessionsDirectory + "/" + pieceID_.uuidString();
}

std::vector<Target> PieceController::allTargets() const {
  std::vector<Target> targets{target_};
  for (const Tentacle& tentacle : tentacles_) targets.push_back(tentacle.target);
  return targets;
}

void PieceController::changed() {
  if (state_.onChange) state_.onChange();
}

// --- Session ---

void PieceController::writeScope() {
  // Everything in the file comes from this controller, never from what the file holds
  // now: an agent that rewrote it gets it back as the application means it.
  ControlScope scope(allTargets(), pieceID_);
  scope.gate = isGated();
  scope.workDir = target_.workingDirectory().path();
  scope.save(sessionDir() + "/scope.json");
}

void PieceController::startSession(const std::optional<SessionRecord>& resume) {
  if (session_) {
    session_->onEvent = {};
    session_->terminate();
    session_.reset();
  }
  resumedFrom_ = resume;
  sessionID_ = resume ? resume->sessionID : UUID();

  std::string folder = sessionDir();
  (void)createDirectories(folder, 0700);  // a failure shows when the agent starts
  writeScope();

  bool fresh = !resume.has_value();
  std::string workDir = target_.workingDirectory().path();
  (void)createDirectories(workDir);  // the scratch folder of window targets
  std::string scopePath = folder + "/scope.json";
  std::vector<Target> tentacleTargets;
  for (const Tentacle& tentacle : tentacles_) tentacleTargets.push_back(tentacle.target);
  std::string systemPrompt = SessionLaunch::systemPrompt(target_, tentacleTargets);

  bool gated = isGated();

  AgentFactory::Request request{agent_,
                                sessionID_,
                                !fresh,
                                fresh ? std::nullopt : resume->externalID,
                                workDir,
                                folder,
                                scopePath,
                                gated ? systemPrompt + "\n" + std::string(AgentLaunch::gatedNote) : systemPrompt,
                                services_.executable};
  state_.agentName = agent_.kind.displayName;
  auto made = services_.makeAgent(request);
  if (!made) {
    state_.error = "Couldn't start " + agent_.kind.displayName + ": " + made.error();
    changed();
    return;
  }
  session_ = std::move(*made);
  std::weak_ptr<PieceController> weak = weak_from_this();
  session_->onEvent = [weak](const AgentEvent& event) {
    if (auto self = weak.lock()) self->handle(event);
  };
  if (auto started = session_->start(); !started) {
    state_.error = "Couldn't start " + agent_.kind.displayName + ": " + started.error();
    session_->onEvent = {};
    session_.reset();
    changed();
    return;
  }
  Log::info(std::string(fresh ? "session new " : "session resume ") + sessionID_.uuidString() + " on " +
            agent_.kind.id + " for " + target_.targetKey());
  if (onChanged) onChanged(*this);
}

void PieceController::chooseResume(bool yes) {
  if (!state_.resumeOffer) return;
  SessionRecord record = *std::exchange(state_.resumeOffer, std::nullopt);
  if (!yes) {
    startSession(std::nullopt);
    changed();
    return;
  }
  std::string wanted = record.agent.value_or(AgentKind::claude().id);
  if (wanted != agent_.kind.id && availableAgents) {
    for (const InstalledAgent& candidate : availableAgents())
      if (candidate.kind.id == wanted) {
        agent_ = candidate;
        break;
      }
  }
  startSession(record);
  state_.lastQuestion = record.lastPrompt;
  state_.answer = parseCitations(record.lastAnswer);
  state_.continued = true;
  changed();
}

void PieceController::switchAgent(const std::string& id) {
  if (id == agent_.kind.id || !availableAgents) return;
  for (const InstalledAgent& candidate : availableAgents()) {
    if (candidate.kind.id != id) continue;
    agent_ = candidate;
    state_.resumeOffer.reset();
    state_.pending.reset();
    pendingApprovals_.clear();
    state_.notice = "Now using " + agent_.kind.displayName;
    startSession(std::nullopt);
    changed();
    return;
  }
}

// --- Following the target ---

void PieceController::tick() {
  if (retired_) return;
  if (!anchor_->tick()) {
    retire(false);
    return;
  }
  for (Tentacle& tentacle : tentacles_)
    if (tentacle.anchor) (void)tentacle.anchor->tick();
  double now = services_.clock.now();
  if (now - lastOcclusion_ > kOcclusionInterval) {
    lastOcclusion_ = now;
    updateOcclusion();
    trackRename();
    if (retired_) return;
  }
  bool visible = anchor_->isOnScreen();
  if (visible != overlay_->isVisible()) {
    if (visible) {
      overlay_->orderFront();
      handle_->orderFront();
    } else {
      overlay_->orderOut();
      handle_->orderOut();
      bubble_->orderOut();
    }
  }
  layout();
}

void PieceController::updateOcclusion() {
  Rect overlayRect = anchor_->frame().grownBy(PossessionLook::kMargin);
  DropResolver resolver(services_.desktop, services_.ownPID);
  std::vector<WindowFrame> windows;
  for (const DropResolver::WindowInfo& info : resolver.onScreenWindows()) {
    if (info.layer != 0) continue;
    if (services_.ownPID && info.pid == *services_.ownPID) continue;
    windows.push_back({info.id, info.frame});
  }
  std::vector<Rect> rects = unoccludedRects(overlayRect, anchor_->windowID(), windows);
  for (Rect& rect : rects) {
    rect.x -= overlayRect.minX();
    rect.y -= overlayRect.minY();
  }
  overlay_->setInkClip(std::move(rects));
}

void PieceController::noteFolderEvent(const FolderEvent& event) {
  if (event.kind != FolderEvent::Kind::added || !identity_) return;
  recentlyAdded_.push_back(event.path);
  if (recentlyAdded_.size() > kRecentlyAddedLimit) recentlyAdded_.erase(recentlyAdded_.begin());
  lastRenameScan_ = -1e9;  // look again at the next tick
}

void PieceController::trackRename() {
  if (!identity_) return;
  auto url = target_.fileURL();
  if (!url) return;
  std::string path = url->path();
  while (path.size() > 1 && path.ends_with('/')) path.pop_back();
  auto now = fileIdentity(path);
  if (now && now->first == identity_->device && now->second == identity_->inode) return;

  // The path no longer names the same file: it was renamed, moved, or deleted. Look where
  // the folder watcher saw something appear, then near where it was, at most once a
  // second, never following links.
  double clockNow = services_.clock.now();
  if (clockNow - lastRenameScan_ < kRenameScanInterval) return;
  lastRenameScan_ = clockNow;
  std::optional<std::string> found;
  for (auto it = recentlyAdded_.rbegin(); it != recentlyAdded_.rend() && !found; ++it) {
    auto id = fileIdentity(*it);
    if (id && id->first == identity_->device && id->second == identity_->inode) found = *it;
  }
  size_t budget = kRenameScanLimit;
  std::string parent = parentOf(path);
  if (!found) found = findIdentity(parent, identity_->device, identity_->inode, 0, budget);
  if (!found && parent != "/") found = findIdentity(parentOf(parent), identity_->device, identity_->inode, 2, budget);
  if (!found || *found == path) return;

  target_ = target_.renamed(URL::fileURL(*found, isDirectory(*found)));
  services_.registry.rename(pieceID_, target_);
  state_.targetName = target_.displayName();
  pendingContext_.push_back("Note: the target was renamed/moved to " + *found + ".");
  Log::info("renamed " + path + " -> " + *found);
  changed();
  if (onChanged) onChanged(*this);
}

void PieceController::layout() {
  Rect overlayFrame = anchor_->frame().grownBy(PossessionLook::kMargin);
  if (overlay_->frame() != overlayFrame) overlay_->setFrame(overlayFrame);
  Point knot = look_.knot();
  Rect handleFrame{knot.x - kHandleSize / 2, knot.y - kHandleSize / 2, kHandleSize, kHandleSize};
  if (handle_->frame() != handleFrame) handle_->setFrame(handleFrame);
  if (!bubble_->isVisible()) return;

  Size size{kBubbleWidth, bubbleHeight_};
  Rect frame;
  if (!anchor_->isIcon()) {
    frame = dockFrame(size);
  } else {
    auto screen = screenContaining(services_.surfaces.screens(), handleFrame.origin());
    Rect visible = screen ? screen->visibleFrame : Rect{0, 0, 1e6, 1e6};
    double x = handleFrame.maxX() - 4;
    if (x + size.width > visible.maxX()) x = handleFrame.minX() - size.width + 4;
    // The bubble hangs down from beside the knot, its top 4 points above the knot's.
    double y = handleFrame.minY() - 4;
    y = std::max(std::min(y, visible.maxY() - size.height), visible.minY());
    x = std::max(x, visible.minX());
    frame = {x, y, size.width, size.height};
  }
  if (bubble_->frame() != frame) bubble_->setFrame(frame);
}

void PieceController::setBubbleHeight(double height) {
  if (height <= 0 || height == bubbleHeight_) return;
  bubbleHeight_ = height;
  layout();
}

Rect PieceController::dockFrame(Size size) const {
  Rect f = anchor_->frame();
  auto screen = screenContaining(services_.surfaces.screens(), {f.x + f.width / 2, f.y + f.height / 2});
  Rect v = screen ? screen->visibleFrame : Rect{0, 0, 1e6, 1e6};
  double x;
  if (size.width + 30 <= v.maxX() - f.maxX()) {
    x = f.maxX() + 30;
  } else if (size.width + 30 <= f.minX() - v.minX()) {
    x = f.minX() - 30 - size.width;
  } else {
    x = f.maxX() - size.width - 12;
  }
  double y = std::max(v.minY() + 4, std::min(v.maxY() - size.height - 4, f.minY() + 36));
  return {x, y, size.width, size.height};
}

std::vector<GooCapsule> PieceController::tentacleCapsules(double t) const {
  std::vector<GooCapsule> capsules;
  if (!overlay_->isVisible()) return capsules;
  Rect f = anchor_->frame();
  if (!anchor_->isIcon() && bubble_->isVisible()) {
    Rect b = bubble_->frame();
    bool onLeft = b.minX() < f.maxX() - 1;
    double by = b.minY() + 44;
    double fromY = std::clamp(by, f.minY() + 20, std::max(f.minY() + 20, f.maxY() - 20));
    Point from{onLeft ? f.minX() + 4 : f.maxX() - 4, fromY};
    Point to{onLeft ? b.maxX() - 14 : b.minX() + 14, by};
    std::vector<double> bulges;
    if (state_.busy) bulges.push_back(t * 0.8 - std::floor(t * 0.8));
    auto strand = Shapes::tentacle(from, to, t, bulges, 0);
    capsules.insert(capsules.end(), strand.begin(), strand.end());
  }
  for (const Tentacle& tentacle : tentacles_) {
    if (!tentacle.anchor || !tentacle.anchor->isOnScreen()) continue;
    Rect a = tentacle.anchor->frame();
    Point to{a.x + a.width / 2, tentacle.anchor->isIcon() ? a.y + a.height / 2 : a.minY() + 12};
    std::vector<double> bulges;
    if (tentacle.readingSince) {
      double r = (t - *tentacle.readingSince) / 1.2;
      r -= std::floor(r);
      double second = r + 0.5;
      bulges = {1 - r, 1 - (second - std::floor(second))};
    }
    double flare = t < tentacle.flareUntil ? 0.6 : 0;
    auto strand = Shapes::tentacle(look_.knot(), to, t + a.minX(), bulges, flare);
    capsules.insert(capsules.end(), strand.begin(), strand.end());
  }
  return capsules;
}

void PieceController::showBubble() {
  if (retired_ || !anchor_->isOnScreen()) return;
  bubble_->orderFront();
  bubble_->makeKey();
  layout();
}

void PieceController::closeBubble() {
  if (bubble_->isVisible()) bubble_->orderOut();
}

void PieceController::toggleBubble() {
  if (bubble_->isVisible()) {
    bubble_->orderOut();
  } else {
    showBubble();
  }
}

// --- Tentacles and links ---

void PieceController::attach(const Target& target, std::shared_ptr<Anchor> anchor) {
  if (target.targetKey() == target_.targetKey()) return;
  for (const Tentacle& tentacle : tentacles_)
    if (tentacle.target.targetKey() == target.targetKey()) return;
  tentacles_.push_back({target, std::move(anchor), std::nullopt, std::nullopt, 0});
  services_.registry.addTentacle(pieceID_, target);
  state_.attached.clear();
  for (const Tentacle& tentacle : tentacles_) state_.attached.push_back(tentacle.target.displayName());
  writeScope();

  std::string note;
  if (auto window = target.controlWindow()) {
    ControlScope scope(allTargets(), std::nullopt);
    for (size_t i = 0; i < scope.entries.size(); ++i) {
      if (scope.entries[i].windowID != window->windowID) continue;
      note = "Window attached: " + target.displayName() + " (" + target.kindLabel() +
             "). Drive it with the zorvane tools using target=\"" + std::to_string(i) + "\".";
      break;
    }
  }
  if (note.empty())
    note = "Additional context attached: " + target.kindLabel() + " " + target.locator() +
           ". Read it when relevant and cite it like the others.";
  pendingContext_.push_back(note);
  state_.notice = "Attached " + target.displayName();
  showBubble();
  changed();
}

void PieceController::attachFiles(const std::vector<std::string>& paths) {
  for (const std::string& path : paths) {
    bool folder = isDirectory(path);
    URL url = URL::fileURL(path, folder);
    attach(folder ? Target::folder(url) : Target::file(url), nullptr);
  }
}

void PieceController::stopPicking() {
  if (!picking_) return;
  picking_ = false;
  if (pickTimeout_) services_.queue.cancel(*std::exchange(pickTimeout_, std::nullopt));
  if (services_.inputMonitor) {
    services_.inputMonitor->onEvent = {};
    services_.inputMonitor->stop();
  }
}

void PieceController::pickWindow() {
  stopPicking();
  state_.notice = "Click the window you want to attach…";
  changed();
  if (!services_.inputMonitor) return;
  std::weak_ptr<PieceController> weak = weak_from_this();
  services_.inputMonitor->onEvent = [weak](const InputEvent& event) {
    auto self = weak.lock();
    if (!self || event.kind != InputEvent::Kind::buttonDown || event.button != 0) return;
    Point at = event.location;
    self->stopPicking();
    // The click first reaches the window; look once it has settled.
    self->services_.queue.after(0.15, [weak, at] {
      auto piece = weak.lock();
      if (!piece || piece->retired_) return;
      DropResolver resolver(piece->services_.desktop, piece->services_.ownPID);
      auto resolved = resolver.resolve(at);
      if (!resolved) {
        piece->state_.notice = "Nothing attachable there.";
        piece->changed();
        return;
      }
      piece->attach(resolved->target, resolved->anchor);
    });
  };
  if (auto started = services_.inputMonitor->start({false, true, false}); !started) {
    Log::info("pick window: " + started.error());
    services_.inputMonitor->onEvent = {};
    state_.notice = "Nothing attachable there.";
    changed();
    return;
  }
  picking_ = true;
  pickTimeout_ = services_.queue.after(15.0, [weak] {
    auto self = weak.lock();
    if (!self || !self->picking_) return;
    self->pickTimeout_.reset();
    self->stopPicking();
    self->state_.notice.reset();
    self->changed();
  });
}

void PieceController::link(PieceController& other) {
  if (&other == this || links_.count(other.pieceID_)) return;
  links_.insert(other.pieceID_);
  state_.links.push_back(other.displayName());
  pendingContext_.push_back("You are now linked with another Zorvane agent, \"" + other.displayName() +
                            "\" (bonded to " + other.target_.kindLabel() + ": " + other.target_.locator() +
                            "). Use list_pieces, ask_piece and tell_piece to coordinate: hand it the parts of a "
                            "task that need its target, and combine the results.");
  state_.notice = "Linked with " + other.displayName();
  changed();
}

void PieceController::unlink(const UUID& id, const std::string& name) {
  if (links_.erase(id) == 0) return;
  std::erase(state_.links, name);
  pendingContext_.push_back("The Zorvane agent \"" + name + "\" is no longer linked.");
  changed();
}

// --- Retiring ---

void PieceController::retire(bool userInitiated) {
  if (retired_) return;
  retired_ = true;
  if (timer_) services_.queue.cancel(*std::exchange(timer_, std::nullopt));
  if (knotHold_) services_.queue.cancel(*std::exchange(knotHold_, std::nullopt));
  stopPicking();

  // Everyone still waiting on this piece hears no.
  if (state_.pending) {
    if (auto respond = std::exchange(state_.pending, std::nullopt)->respond) respond(false);
  }
  for (PendingApproval& queued : std::exchange(pendingApprovals_, {}))
    if (queued.respond) queued.respond(false);
  if (auto reply = std::exchange(currentPeerReply_, {})) reply({false, "That agent was retired before it answered."});
  for (InboxEntry& entry : std::exchange(inbox_, {}))
    if (entry.reply) entry.reply({false, "That agent was retired."});

  if (session_) {
    session_->onEvent = {};
    session_->terminate();
  }
  services_.registry.park(pieceID_);
  handle_->orderOut();
  bubble_->orderOut();
  look_.retireStart = services_.clock.wallSeconds();

  // The overlay plays its retreat, then goes; the piece lives until then.
  auto self = shared_from_this();
  services_.queue.after(PossessionLook::kRetireSeconds + 0.1, [self] { self->overlay_->orderOut(); });

  if (userInitiated)
    services_.activity.add(ActivityEvent(ActivityEvent::Kind::piece, target_.displayName(), "Retired"));
  state_.busy = false;
  state_.mood = Mood::idle;
  changed();
  if (onRetire) onRetire(*this, userInitiated);
}

// --- The knot ---

void PieceController::knotDown(Point) {
  if (knotHold_) services_.queue.cancel(*knotHold_);
  std::weak_ptr<PieceController> weak = weak_from_this();
  knotHold_ = services_.queue.after(kKnotHoldSeconds, [weak] {
    auto self = weak.lock();
    if (!self) return;
    self->knotHold_.reset();
    if (self->growing_) return;
    self->knotTalking_ = true;
    if (self->onVoiceStart) self->onVoiceStart(*self);
  });
}

void PieceController::knotDrag(Point point) {
  if (knotTalking_) return;
  if (knotHold_) services_.queue.cancel(*std::exchange(knotHold_, std::nullopt));
  if (!growing_) {
    growing_ = true;
    if (onGrowTentacle) onGrowTentacle(*this, look_.knot());
  }
  if (onTentacleDrag) onTentacleDrag(point);
}

void PieceController::knotUp(Point point, bool moved) {
  if (knotHold_) services_.queue.cancel(*std::exchange(knotHold_, std::nullopt));
  if (knotTalking_) {
    knotTalking_ = false;
    if (onVoiceEnd) onVoiceEnd();
    return;
  }
  if (moved && growing_) {
    growing_ = false;
    if (onTentacleDrop) onTentacleDrop(*this, point);
    return;
  }
  growing_ = false;
  toggleBubble();
}

// --- Conversation ---

void PieceController::ask(const std::string& text) {
  if (!state_.armedSkill) {
    askAs(text, std::nullopt);
    return;
  }
  LearnedSkill skill = *std::exchange(state_.armedSkill, std::nullopt);
  std::string path = SkillIndex::skillsRoot() + "/" + skill.slug + "/SKILL.md";
  std::string prompt = "Use the learned skill “" + skill.name + "” (read " + path + " first) on the " + skill.app +
                       " window. Request: " + text +
                       "\nIf an input it needs is missing, ask me for it instead of guessing.";
  askAs(prompt, text);
}

void PieceController::askAs(const std::string& text, const std::optional<std::string>& shownAs) {
  if (retired_) return;
  if (state_.learn.is<LearnPhase::Done>()) state_.learn = {};
  look_.ripple = services_.clock.wallSeconds();
  state_.answer.reset();
  state_.error.reset();
  state_.busy = true;
  state_.mood = Mood::working;
  state_.status.clear();
  state_.lastQuestion = shownAs.value_or(text);
  state_.continued = false;
  state_.notice.reset();
  lastPrompt_ = text;

  if (!session_ || !session_->isRunning()) {
    if (resumedFrom_) services_.store.forget(sessionID_);
    startSession(std::nullopt);
  }
  if (!session_) {
    // The agent couldn't start: startSession put the reason in `error`; the next ask
    // tries again. A peer waiting for this turn hears it now.
    state_.busy = false;
    state_.mood = Mood::idle;
    if (auto reply = std::exchange(currentPeerReply_, {}))
      reply({false, "The other agent failed: " + state_.error.value_or("it couldn't start")});
    changed();
    return;
  }

  std::string context;
  if (!pendingContext_.empty()) {
    for (size_t i = 0; i < pendingContext_.size(); ++i) context += (i ? "\n" : "") + pendingContext_[i];
    context += "\n\n";
    pendingContext_.clear();
  }
  services_.registry.markRan(pieceID_);
  skillRuns_.begin(text);
  changed();
  session_->send(context + text);
}

void PieceController::handle(const AgentEvent& event) {
  if (retired_) return;
  if (onSessionEvent) onSessionEvent(event);
  if (const auto* stream = event.as<AgentEvent::Stream>()) {
    if (stream->event.as<StreamEvent::Text>()) {
      if (state_.busy) state_.status = "Thinking";
    } else if (const auto* use = stream->event.as<StreamEvent::ToolUse>()) {
      state_.status = FriendlyStatus::describe(use->name, use->input);
      std::optional<std::string> path = textAt(use->input, "file_path");
      if (!path) path = textAt(use->input, "path");
      if (path) {
        for (Tentacle& tentacle : tentacles_) {
          auto url = tentacle.target.fileURL();
          if (!url) continue;
          std::string own = url->path();
          while (own.size() > 1 && own.ends_with('/')) own.pop_back();
          if (own != *path) continue;
          tentacle.readingSince = services_.clock.wallSeconds();
          tentacle.readingToolID = use->id;
          break;
        }
      }
    } else if (const auto* result = stream->event.as<StreamEvent::ToolResult>()) {
      for (Tentacle& tentacle : tentacles_) {
        if (tentacle.readingToolID != result->id) continue;
        std::weak_ptr<PieceController> weak = weak_from_this();
        std::string id = result->id;
        std::string key = tentacle.target.targetKey();
        services_.queue.after(0.8, [weak, id, key] {
          auto self = weak.lock();
          if (!self) return;
          for (Tentacle& t : self->tentacles_)
            if (t.target.targetKey() == key && t.readingToolID == id) t.readingSince.reset();
        });
        break;
      }
    }
    changed();
  } else if (const auto* permission = event.as<AgentEvent::Permission>()) {
    std::weak_ptr<PieceController> weak = weak_from_this();
    std::weak_ptr<AgentTransport> session = session_;
    PermissionRequest request = permission->request;
    requestApproval(request.toolName, request.input, request.description, [weak, session, request](bool allow) {
      auto self = weak.lock();
      auto live = session.lock();
      if (!self || !live || live != self->session_) return;
      // The harness runs an allowed call of this program's tools through the tool
      // server, which asks once more: that one call is let through.
      if (allow && request.toolName.starts_with("mcp__zorvane__")) {
        self->harnessAllowed_.emplace_back(request.toolName, request.input);
        if (self->harnessAllowed_.size() > 16) self->harnessAllowed_.erase(self->harnessAllowed_.begin());
      }
      live->respond(request, allow);
    });
  } else if (const auto* finished = event.as<AgentEvent::Finished>()) {
    if (finished->outcome.isAnswer()) {
      turnSucceeded(finished->outcome.text);
    } else {
      turnFailed(finished->outcome.text);
    }
  } else if (const auto* raw = event.as<AgentEvent::Raw>()) {
    state_.transcript.push_back(utf8Prefix(raw->line, 400));
    if (state_.transcript.size() > kTranscriptLimit)
      state_.transcript.erase(state_.transcript.begin(), state_.transcript.begin() + 100);
    changed();
  } else if (const auto* exited = event.as<AgentEvent::Exited>()) {
    processExited(exited->code, exited->stderrTail);
  }
}

void PieceController::clearApprovals() {
  // An approval left open when the turn ended has nobody to act on it any more.
  for (PendingApproval& queued : std::exchange(pendingApprovals_, {}))
    if (queued.respond) queued.respond(false);
  if (state_.pending) {
    if (auto respond = std::exchange(state_.pending, std::nullopt)->respond) respond(false);
  }
}

void PieceController::turnSucceeded(const std::string& text) {
  state_.busy = false;
  state_.mood = Mood::idle;
  clearApprovals();
  skillRuns_.finish(true, services_.skills, services_.activity);
  Log::info("answer [" + displayName() + "]: " + oneLine(utf8Prefix(text, 300)));
  if (const auto* compiling = state_.learn.as<LearnPhase::Compiling>()) {
    state_.learn.value = LearnPhase::Done{compiling->name};
    if (auto window = target_.controlWindow()) state_.skills = services_.skills.skillsForBundle(window->bundleID);
  }
  if (auto reply = std::exchange(currentPeerReply_, {})) reply({true, text});
  turns_ += 1;
  resumedFrom_.reset();
  state_.answer = parseCitations(text);
  // Read-aloud arrives with speech output; until then the wish lapses with this answer.
  speakNextReply = false;

  auto previous = services_.store.previous(target_);
  SessionRecord record;
  record.targetKey = target_.targetKey();
  record.looseKey = target_.looseKey();
  record.sessionID = sessionID_;
  record.displayName = target_.displayName();
  record.lastPrompt = lastPrompt_;
  record.lastAnswer = text;
  record.updatedAt = services_.clock.wallNow();
  record.turns = (previous ? previous->turns : 0) + 1;
  record.agent = agent_.kind.id;
  record.externalID = session_ ? session_->externalSessionID() : std::nullopt;
  services_.store.upsert(std::move(record));
  endOfTurn();
}

void PieceController::turnFailed(const std::string& error) {
  state_.busy = false;
  state_.mood = Mood::idle;
  clearApprovals();
  if (error.find("already in use") != std::string::npos && !resumedFrom_ && turns_ == 0) {
    startSession(std::nullopt);
    if (session_) {
      state_.busy = true;
      state_.mood = Mood::working;
      changed();
      session_->send(lastPrompt_);
      return;
    }
  } else if (resumedFrom_ && turns_ == 0) {
    Log::info("resume failed, starting fresh: " + utf8Prefix(error, 200));
    services_.store.forget(sessionID_);
    startSession(std::nullopt);
    if (session_) {
      state_.status = "Couldn't continue the old conversation; starting fresh";
      state_.busy = true;
      state_.mood = Mood::working;
      changed();
      session_->send(lastPrompt_);
      return;
    }
  }
  skillRuns_.finish(false, services_.skills, services_.activity);
  if (auto reply = std::exchange(currentPeerReply_, {})) reply({false, "The other agent failed: " + error});
  state_.error = FriendlyError::explain(error, agent_.kind);
  endOfTurn();
}

void PieceController::endOfTurn() {
  std::weak_ptr<PieceController> weak = weak_from_this();
  services_.queue.post([weak] {
    if (auto self = weak.lock()) self->processInbox();
  });
  showBubble();
  changed();
}

void PieceController::processExited(int code, const std::string& stderrTail) {
  Log::info("session " + sessionID_.uuidString() + " exited " + std::to_string(code) + ": " +
            utf8Suffix(stderrTail, 200));
  if (!(resumedFrom_ && turns_ == 0 && !state_.busy)) return;
  services_.store.forget(sessionID_);
  startSession(std::nullopt);
  state_.continued = false;
  state_.answer.reset();
  state_.lastQuestion.clear();
  state_.notice = "That earlier conversation can't be continued anymore, so this is a fresh start.";
  changed();
}

std::string PieceController::statusLine() const {
  if (state_.mood == Mood::needsApproval) return "waiting for the user's approval";
  return state_.busy ? "busy" : "idle";
}

bool PieceController::touchesProtectedFolder(const std::string& tool, const JSONObject& input) const {
  std::string name = tool.starts_with("mcp__zorvane__") ? tool.substr(14) : tool;
  auto mentions = [this](const std::string& text) {
    for (const std::string& folder : services_.protectedFolders)
      if (!folder.empty() && text.find(folder) != std::string::npos) return true;
    return false;
  };
  for (const char* key : {"path", "file_path", "notebook_path", "command"}) {
    auto value = textAt(input, key);
    if (value && mentions(*value)) return true;
  }
  return false;
}

void PieceController::requestApproval(const std::string& tool, const JSONObject& input,
                                      const std::string& description, std::function<void(bool)> respond) {
  if (retired_) {
    respond(false);
    return;
  }
  Decision decision = ActionPolicy{allTargets()}.decide(tool, input);
  bool protectedFolder = touchesProtectedFolder(tool, input);
  if (protectedFolder) {
    // An agent that could rewrite its scope or tool configuration could switch its own
    // approvals off: writes there are refused outright, and a command that names one of
    // these folders is always put to the user, whatever the piece's trust.
    static const std::set<std::string> writers = {"Write", "Edit", "MultiEdit", "NotebookEdit",
                                                  "mcp__zorvane__write_file", "write_file"};
    if (writers.count(tool)) {
      Log::info("refused " + tool + " into Zorvane's own folders for " + displayName());
      respond(false);
      return;
    }
    if (decision.isAllow() || (decision.asAsk() && decision.asAsk()->actionClass != ActionClass::irreversible))
      decision = Decision::ask(ActionClass::irreversible, "Change Zorvane's own files");
  }
  if (decision.isAllow()) {
    respond(true);
    return;
  }
  if (decision.asDeny()) {
    respond(false);
    return;
  }
  const Decision::Ask& ask = *decision.asAsk();
  if (ask.actionClass == ActionClass::act && trustActs_) {
    // Passed on the user's standing word: still written down, so the audit log lists
    // everything that ran, asked or not.
    AuditLog::append(services_.auditLogPath, services_.clock.wallNow(), pieceID_, tool, ask.actionClass,
                     ApprovalText::escaped(ask.summary), true, true);
    respond(true);
    return;
  }
  // The policy's words, built from what will run, lead; the agent's own words may
  // stand beside them, never instead of them.
  std::string summary = ask.summary;
  if (!description.empty() && summary.find(description) == std::string::npos) summary += " — " + description;
  summary = ApprovalText::escaped(summary);
  auto detail = ApprovalText::detail(tool, input);
  PendingApproval approval{tool, ask.actionClass, std::move(summary), detail,
                           detail ? std::optional<std::string>(ApprovalText::cutInMiddle(*detail, 240)) : std::nullopt,
                           std::move(respond)};
  // Agents may ask for several tools at once: one card at a time, the rest in order.
  if (state_.pending) {
    pendingApprovals_.push_back(std::move(approval));
    return;
  }
  state_.pending = std::move(approval);
  state_.mood = Mood::needsApproval;
  showBubble();
  changed();
}

void PieceController::approveToolServerCall(const std::string& tool, const JSONObject& input,
                                            const std::string& description, std::function<void(bool)> respond) {
  for (auto it = harnessAllowed_.begin(); it != harnessAllowed_.end(); ++it) {
    // The harness names the call as the tool server's prefix + name, with the same input.
    JSONObject asked = it->second;
    JSONObject sent = input;
    asked.erase("why");
    sent.erase("why");
    if (it->first != tool || asked != sent) continue;
    harnessAllowed_.erase(it);
    respond(true);
    return;
  }
  requestApproval(tool, input, description, std::move(respond));
}

void PieceController::decide(bool allow) {
  if (!state_.pending) return;
  PendingApproval approval = *std::exchange(state_.pending, std::nullopt);
  if (approval.respond) approval.respond(allow);
  AuditLog::append(services_.auditLogPath, services_.clock.wallNow(), pieceID_, approval.toolName, approval.cls,
                   approval.summary, allow);
  services_.activity.add(ActivityEvent(ActivityEvent::Kind::approval, displayName(),
                                       std::string(allow ? "Allowed: " : "Denied: ") + approval.summary, allow));
  if (!pendingApprovals_.empty()) {
    PendingApproval next = std::move(pendingApprovals_.front());
    pendingApprovals_.erase(pendingApprovals_.begin());
    // A trust given meanwhile lets a waiting act through without a second card.
    if (trustActs_ && next.cls == ActionClass::act) {
      AuditLog::append(services_.auditLogPath, services_.clock.wallNow(), pieceID_, next.toolName, next.cls,
                       next.summary, true, true);
      if (next.respond) next.respond(true);
      state_.mood = Mood::working;
      changed();
      return;
    }
    state_.pending = std::move(next);
    state_.mood = Mood::needsApproval;
    changed();
    return;
  }
  state_.mood = state_.busy ? Mood::working : Mood::idle;
  changed();
}

void PieceController::trustAndAllow() {
  trustActs_ = true;
  decide(true);
}

void PieceController::deliver(const std::string& from, const std::string& fromTarget, const std::string& text,
                              Reply reply) {
  if (retired_) {
    if (reply) reply({false, "That agent was retired."});
    return;
  }
  std::string message = PeerIPC::inbound(from, fromTarget, text, reply != nullptr);
  inbox_.push_back({from, std::move(message), std::move(reply)});
  if (state_.resumeOffer) chooseResume(true);
  processInbox();
}

void PieceController::processInbox() {
  if (retired_ || state_.busy || state_.pending || inbox_.empty()) return;
  InboxEntry entry = std::move(inbox_.front());
  inbox_.erase(inbox_.begin());
  currentPeerReply_ = std::move(entry.reply);
  std::string words = secondLine(entry.text);
  askAs(entry.text, words.empty() ? std::optional<std::string>() : "From " + entry.from + ": " + words);
}

void PieceController::flare(const Citation& citation) {
  double until = services_.clock.wallSeconds() + 0.4;
  int flared = 0;
  for (Tentacle& tentacle : tentacles_) {
    if (tentacle.target.displayName() != citation.file) continue;
    tentacle.flareUntil = until;
    ++flared;
  }
  Log::info("flare " + citation.file + ": " + std::to_string(flared) + (flared == 1 ? " tentacle" : " tentacles"));
}

// --- Learning ---
//
// The recorder that watches a demonstration is not part of this build: starting says
// that learning can't run here, and the later steps find nothing recorded.

void PieceController::startLearning() {
  state_.notice = "Learning needs a window target.";
  changed();
}

void PieceController::stopLearning() {
  if (!state_.learn.is<LearnPhase::Recording>()) return;
  recordedSteps_.clear();
  state_.learn = {};
  state_.notice = "Nothing was recorded in " + state_.targetName + ". Click inside that window while Learn is on.";
  changed();
}

void PieceController::cancelLearning() {
  recordedSteps_.clear();
  state_.learn = {};
  changed();
}

void PieceController::saveSkill(const std::string&, const std::string&) {
  // Needs a recording, which only the recorder makes.
}

}  // namespace zorvane
