// PieceController: one agent bonded to one target, for as long as the piece lives.
//
// It owns the agent session, the three panels beside the target (the goo overlay, the
// knot handle and the bubble), the tentacles to further targets and the PieceState the
// bubble shows. Sixty times a second `tick` follows the target: its anchor, what covers
// it, a rename on disk, and the panels' frames. A question goes out through `ask`; the
// session's events come back through `handle`; approvals come in from the agent
// (`permission` events) or from its tool server over the peer socket
// (`requestApproval`), wait in `state().pending` for `decide`, and are written to the
// audit log. Messages from linked pieces wait in an inbox and are taken one at a time
// between turns.
//
// Everything it needs comes in through PieceServices: the queue and clock, the surfaces,
// the desktop, the stores and the agent factory, so a test drives a whole piece with
// fakes and an in-memory AgentTransport.
//
//   auto piece = PieceController::make(services, entry, previous, resolved, dropPoint, agent,
//                                      /*autoContinue*/ false, /*quiet*/ false);
//   piece->onRetire = [](PieceController& p, bool byUser) { ... };
//   piece->ask("What is in this folder?");
//
// Main queue only. The session, timers and panels hold the controller weakly; once
// `retire` ran, the session is ended, every waiting party has had its answer, and no
// callback of the controller runs again apart from the overlay's retreat.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "app/pieces/piece_state.h"
#include "app/pieces/possession_look.h"
#include "app/pieces/window_layout.h"
#include "app/resolver/anchor.h"
#include "core/agent/agent_factory.h"
#include "core/agent/agent_transport.h"
#include "core/base/clock.h"
#include "core/base/main_queue.h"
#include "core/goo/blob.h"
#include "core/hub/activity_log.h"
#include "core/learn/demo_step.h"
#include "core/learn/skill_index.h"
#include "core/learn/skill_run_tracker.h"
#include "core/mcp/peer_ipc.h"
#include "core/registry/registry.h"
#include "core/registry/session_store.h"
#include "platform/desktop_services.h"
#include "platform/folder_watcher.h"
#include "platform/input_monitor.h"
#include "platform/surfaces.h"

namespace zorvane {

// What every piece of the application shares; AppDelegate owns it, tests fill it with
// fakes. Every reference must outlive the pieces.
struct PieceServices {
  MainQueue& queue;
  const Clock& clock;
  Surfaces& surfaces;
  DesktopServices& desktop;
  Registry& registry;
  SessionStore& store;
  ActivityLog& activity;
  SkillIndex& skills;
  AgentFactory::Maker makeAgent;
  std::string sessionsDirectory;  // each piece's folder is made here
  std::string auditLogPath;
  std::string executable;         // this program: the agents' tool server
  std::optional<int32_t> ownPID;  // windows of this process are never targets
  InputMonitor* inputMonitor = nullptr;  // the click that picks a window; none: no picking
  // Zorvane's own folders (data, state, settings): they hold every piece's scope and
  // tool configuration, so no agent may write there.
  std::vector<std::string> protectedFolders;
};

class PieceController : public std::enable_shared_from_this<PieceController> {
 public:
  using Reply = std::function<void(const PeerResponse&)>;

  struct Tentacle {
    Target target;
    std::shared_ptr<Anchor> anchor;  // null when nothing of it is on screen
    std::optional<double> readingSince;
    std::optional<std::string> readingToolID;
    double flareUntil = 0;
  };

  struct InboxEntry {
    std::string from;
    std::string text;
    Reply reply;  // empty for a message that wants no answer
  };

  static constexpr double kTickInterval = 1.0 / 60;
  static constexpr double kOcclusionInterval = 0.1;
  static constexpr double kKnotHoldSeconds = 0.45;
  static constexpr double kBubbleWidth = 360;
  static constexpr double kHandleSize = 40;
  // Frame rates of the overlay and the knot. The flood, a working or asking mood, a
  // ripple and the retreat move the goo by tens of points a second: 60. A settled idle
  // look only breathes (its border's edge moves under 3 points a second), so at 24 a
  // frame moves it by about a tenth of a point: the same to the eye, for 40 % of the work.
  static constexpr int kActiveRate = 60;
  static constexpr int kRestRate = 24;
  // How long after the bond the flood and its strands run.
  static constexpr double kFloodSeconds = 1.2;
  // Whether the piece's goo moves fast at `t` (seconds since 1970), see kActiveRate.
  [[nodiscard]] bool isLively(double t) const;
  // The room a window needs beside it for the docked bubble.
  static constexpr double kDockRoom = 414;

  // Builds the piece, its panels and (without `previous`) its session; with `previous`
  // it offers to resume, and takes the offer at once when `autoContinue`. `quiet` keeps
  // the bubble closed.
  static std::shared_ptr<PieceController> make(PieceServices& services, const Registry::Entry& entry,
                                               std::optional<SessionRecord> previous, Resolved resolved,
                                               Point dropPoint, InstalledAgent agent, bool autoContinue,
                                               bool quiet);
  ~PieceController();
  PieceController(const PieceController&) = delete;
  PieceController& operator=(const PieceController&) = delete;

  // Filled by AppDelegate right after `make`.
  std::function<void(PieceController&, bool userInitiated)> onRetire;
  std::function<void(PieceController&)> onChanged;
  std::function<void(PieceController&, Point)> onGrowTentacle;
  std::function<void(Point)> onTentacleDrag;
  std::function<void(PieceController&, Point)> onTentacleDrop;
  std::function<void(PieceController&)> onVoiceStart;
  std::function<void()> onVoiceEnd;
  std::function<std::vector<InstalledAgent>()> availableAgents;
  // Sees every event of the session before the piece handles it (the self-test prints
  // them).
  std::function<void(const AgentEvent&)> onSessionEvent;

  // Read the next answer aloud.
  bool speakNextReply = false;

  // --- Lifecycle and target ---
  void retire(bool userInitiated);
  void link(PieceController& other);
  void unlink(const UUID& id, const std::string& name);
  void attach(const Target& target, std::shared_ptr<Anchor> anchor);
  // Attaches files and folders the user picked.
  void attachFiles(const std::vector<std::string>& paths);
  // Waits for the user's next click anywhere and attaches what is under it.
  void pickWindow();
  void switchAgent(const std::string& id);
  void chooseResume(bool yes);
  void tick();
  void layout();
  [[nodiscard]] Rect dockFrame(Size size) const;
  [[nodiscard]] std::vector<GooCapsule> tentacleCapsules(double t) const;
  void showBubble();
  void toggleBubble();
  void closeBubble();
  // The bubble's content asks for this height (points); it is laid out again.
  void setBubbleHeight(double height);
  // A folder changed on disk: may be where the target moved.
  void noteFolderEvent(const FolderEvent& event);

  // --- Conversation ---
  void ask(const std::string& text);
  void handle(const AgentEvent& event);
  [[nodiscard]] std::string statusLine() const;
  void requestApproval(const std::string& tool, const JSONObject& input, const std::string& description,
                       std::function<void(bool)> respond);
  // A tool server of this piece asks leave for a call (the peer socket's `approve`).
  // For an agent whose harness asks first (it raised a permission event the user
  // allowed), the same call passes once; anything else goes to requestApproval.
  void approveToolServerCall(const std::string& tool, const JSONObject& input, const std::string& description,
                             std::function<void(bool)> respond);
  void decide(bool allow);
  // "Allow all for this piece": trust acts from now on, and allow the one open.
  void trustAndAllow();
  void deliver(const std::string& from, const std::string& fromTarget, const std::string& text, Reply reply);
  void flare(const Citation& citation);
  void startLearning();
  void stopLearning();
  void cancelLearning();
  void saveSkill(const std::string& name, const std::string& purpose);

  // --- The knot's gestures (the handle panel's pointer, also callable by a view) ---
  void knotDown(Point point);
  void knotDrag(Point point);
  void knotUp(Point point, bool moved);

  // --- Reading ---
  [[nodiscard]] const UUID& pieceID() const { return pieceID_; }
  [[nodiscard]] const UUID& sessionID() const { return sessionID_; }
  [[nodiscard]] const Target& target() const { return target_; }
  [[nodiscard]] const std::shared_ptr<Anchor>& anchor() const { return anchor_; }
  [[nodiscard]] const PieceState& state() const { return state_; }
  [[nodiscard]] PieceState& mutableState() { return state_; }
  [[nodiscard]] const std::vector<Tentacle>& tentacles() const { return tentacles_; }
  [[nodiscard]] const std::set<UUID>& links() const { return links_; }
  [[nodiscard]] const InstalledAgent& agent() const { return agent_; }
  [[nodiscard]] const std::shared_ptr<AgentTransport>& session() const { return session_; }
  [[nodiscard]] const PossessionLook& look() const { return look_; }
  [[nodiscard]] bool isRetired() const { return retired_; }
  [[nodiscard]] bool trustsActs() const { return trustActs_; }
  // Whether this piece's tool server asks the user itself (the agent's harness has no
  // permission requests of its own).
  [[nodiscard]] bool isGated() const { return agent_.kind.id != AgentKind::claude().id; }
  [[nodiscard]] const std::vector<std::string>& pendingContext() const { return pendingContext_; }
  [[nodiscard]] const std::vector<InboxEntry>& inbox() const { return inbox_; }
  [[nodiscard]] std::string sessionDir() const;
  [[nodiscard]] std::string displayName() const { return target_.displayName(); }
  [[nodiscard]] const GooPanel& overlay() const { return *overlay_; }
  [[nodiscard]] const GooPanel& handlePanel() const { return *handle_; }
  [[nodiscard]] const GooPanel& bubble() const { return *bubble_; }

 private:
  PieceController(PieceServices& services, const Registry::Entry& entry, Resolved resolved, Point dropPoint,
                  InstalledAgent agent);
  void init(std::optional<SessionRecord> previous, bool autoContinue, bool quiet);
  void buildViews();
  void startSession(const std::optional<SessionRecord>& resume);
  void writeScope();
  void askAs(const std::string& text, const std::optional<std::string>& shownAs);
  void turnSucceeded(const std::string& text);
  void turnFailed(const std::string& error);
  void endOfTurn();
  void processExited(int code, const std::string& stderrTail);
  void processInbox();
  void updateOcclusion();
  void trackRename();
  void stopPicking();
  void clearApprovals();
  bool touchesProtectedFolder(const std::string& tool, const JSONObject& input) const;
  void changed();
  std::vector<Target> allTargets() const;
  GooScene handleScene(double t) const;

  PieceServices& services_;
  UUID pieceID_;
  UUID sessionID_;
  Target target_;
  std::shared_ptr<Anchor> anchor_;
  PieceState state_;
  std::vector<Tentacle> tentacles_;
  InstalledAgent agent_;
  std::shared_ptr<AgentTransport> session_;
  std::optional<SessionRecord> resumedFrom_;
  int turns_ = 0;
  std::string lastPrompt_;
  std::unique_ptr<GooPanel> overlay_, handle_, bubble_;
  std::optional<TimerID> timer_, knotHold_, pickTimeout_;
  PossessionLook look_;
  WindowLayout windowLayout_;
  double lastOcclusion_ = 0;
  double bondTime_;
  // The file or folder's identity on disk, which survives a rename or a move.
  struct FileIdentity {
    uint64_t device = 0, inode = 0;
  };
  std::optional<FileIdentity> identity_;
  std::vector<std::string> recentlyAdded_;  // paths the folder watcher saw appear
  double lastRenameScan_ = -1e9;
  double bubbleHeight_ = 240;
  std::vector<PendingApproval> pendingApprovals_;  // behind state_.pending, in order
  // Calls of this program's tools that the user allowed through the harness's own
  // permission request, each good for one tool-server call.
  std::vector<std::pair<std::string, JSONObject>> harnessAllowed_;
  std::vector<std::string> pendingContext_;
  bool retired_ = false;
  bool trustActs_ = false;
  bool picking_ = false;
  std::set<UUID> links_;
  std::vector<InboxEntry> inbox_;
  Reply currentPeerReply_;
  SkillRunTracker skillRuns_;
  std::vector<DemoStep> recordedSteps_;
  bool knotTalking_ = false;
  bool growing_ = false;
};

}  // namespace zorvane
