// AppDelegate: the one object of the running application that knows all the others.
//
// It builds the application's surfaces at launch, owns the stores of this run (the
// registry, the session store, the snapshots of live pieces, the activity log), the
// peer server's router and every PieceController, and joins them by callbacks. It
// turns a drop into a piece (`bond`), brings last run's pieces back (`restoreAll`),
// answers the peer socket (`router().route`), keeps the machine awake while an agent
// works, and saves the live pieces when the application quits.
//
// Everything it touches of the desktop comes in through ApplicationContext, so the
// whole delegate runs headless in a test on platform/fake and an in-memory agent.
// Views (the notch, drag layer, tray, hub, guide and alerts) bind to what it exposes;
// until a view exists its surface is made, placed and kept empty.
//
// Main queue only. Discovery runs on a thread of its own and hops back.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/notch/drag_layer.h"
#include "app/notch/notch_controller.h"
#include "app/notch/tray_controller.h"
#include "app/peers/peer_router.h"
#include "app/pieces/piece_controller.h"
#include "app/shell/command_line.h"
#include "app/shell/onboarding_controller.h"
#include "app/shell/status_menu.h"
#include "app/shell/views.h"
#include "core/agent/agent_factory.h"
#include "core/hub/activity_log.h"
#include "core/learn/skill_index.h"
#include "core/registry/piece_snapshots.h"
#include "core/registry/registry.h"
#include "core/registry/session_store.h"
#include "platform/desktop_services.h"
#include "platform/file_manager.h"
#include "platform/folder_watcher.h"
#include "platform/hot_key.h"
#include "platform/input_monitor.h"
#include "platform/sleep_inhibitor.h"
#include "platform/surfaces.h"

namespace zorvane {

// What the application is given from outside: the desktop, the toolkit's surfaces,
// where its files live, and how it finds agents. Every reference must outlive the
// delegate.
struct ApplicationContext {
  MainQueue& queue;
  const Clock& clock;
  Surfaces& surfaces;
  DesktopServices& desktop;
  FileManager& fileManager;
  SleepInhibitor& sleepInhibitor;
  HotKey* hotKey = nullptr;              // none: no global shortcut
  FolderWatcher* folderWatcher = nullptr;  // none: renames are found by looking
  InputMonitor* inputMonitor = nullptr;  // none: no picking a window by click
  CommandLine commandLine;
  std::string dataDirectory;   // stores, sessions and the audit log live here
  // Zorvane's own folders no agent may write to (the data folder is always one).
  std::vector<std::string> protectedFolders;
  std::string settingsPath;
  std::string executable;      // this program, for the agents' tool servers
  int32_t ownPID = 0;
  AgentFactory::Maker makeAgent;
  // Finds the agent tools on this machine (blocking; called off the main queue).
  std::function<std::vector<InstalledAgent>()> discoverAgents;
  // The flags a resident agent tool at this path lacks (blocking; off the main queue).
  std::function<std::vector<std::string>(const std::string& path)> missingFlags;
  // Whether the accessibility bus can be reached and is switched on.
  std::function<bool()> accessibilityAvailable;
  // Whether a window of another program can be captured.
  std::function<bool()> screenCaptureAvailable;
  // The cards drawn on the panels; none in headless tests.
  Views views;
  // The second shortcut, which bonds the window that has the keyboard; none: no such
  // shortcut. Last, so that a context written in order may leave it out.
  HotKey* bondHotKey = nullptr;
  // The command that opens this desktop's accessibility settings; none: the alert says
  // what to do instead.
  std::optional<std::vector<std::string>> accessibilitySettings;
};

// A question for the user with one or two buttons.
struct Alert {
  std::string title;
  std::string text;
  // With an action, the buttons are "Open Settings" (runs it) and "Later"; else "OK".
  std::function<void()> openSettings;
};

class AppDelegate : public std::enable_shared_from_this<AppDelegate> {
 public:
  using Pieces = PeerRouter::Pieces;

  static constexpr double kKeepAwakeInterval = 5.0;

  explicit AppDelegate(ApplicationContext context);
  ~AppDelegate();
  AppDelegate(const AppDelegate&) = delete;
  AppDelegate& operator=(const AppDelegate&) = delete;

  // Set by the toolkit before launch: shows an alert; puts text on the clipboard; opens
  // a folder or settings on the desktop; quits the application.
  std::function<void(const Alert&)> showAlert;
  std::function<void(const std::string&)> copyToClipboard;
  std::function<void()> quit;

  void applicationDidFinishLaunching();
  // Saves the live pieces, then retires them all quietly. Idempotent.
  void applicationWillTerminate();
  // Retires every piece as the user's action.
  void retireAll();

  // --- Bonding ---
  // The pointer went up at the end of a pull on the notch: bonds at the goo's tip when
  // it was pulled far enough, and sends the goo home otherwise.
  void endPull(Point at);
  void bond(Point at);
  void bond(Resolved resolved, Point dropPoint, std::optional<SessionRecord> continuing, bool quiet);
  void resume(const SessionRecord& record);
  [[nodiscard]] std::optional<Target> targetFor(const SessionRecord& record) const;
  void restoreAll();
  void dismissRestore();
  void saveSnapshots();
  void onTentacleDrop(PieceController& piece, Point point);
  void focusPiece(const UUID& id);
  // The bond shortcut: bonds the window that has the keyboard focus (the front window of
  // another program when one of ours has it), as a drop on it would, without a drag.
  void bondFocusedWindow();

  // --- The tray and the guide ---
  // Fills the tray's model from the pieces, the offer to restore and the message.
  void refreshTray();
  // Shows a message in the tray and keeps it up for a while.
  void showTrayMessage(std::string message);
  // Hides the hub and shows the first-start guide.
  void showOnboarding();
  // Starts this program again once this one has quit, then quits.
  void relaunch();

  // --- What views and tests read ---
  [[nodiscard]] const Pieces& pieces() const { return pieces_; }
  [[nodiscard]] PieceController* piece(const UUID& id) const;
  [[nodiscard]] PeerRouter& router() { return router_; }
  [[nodiscard]] Registry& registry() { return registry_; }
  [[nodiscard]] SessionStore& store() { return store_; }
  [[nodiscard]] ActivityLog& activity() { return *activity_; }
  [[nodiscard]] const std::vector<PieceSnapshot>& pendingRestore() const { return pendingRestore_; }
  [[nodiscard]] const std::vector<InstalledAgent>& agents() const { return agents_; }
  [[nodiscard]] const std::optional<std::string>& agentProblem() const { return agentProblem_; }
  [[nodiscard]] bool agentsDiscovered() const { return discovered_; }
  [[nodiscard]] bool isTerminating() const { return terminating_; }
  [[nodiscard]] bool keepsAwake() const { return keepAwakeHeld_; }
  // What the tray says after a restore or resume that didn't find everything.
  [[nodiscard]] const std::optional<std::string>& trayMessage() const { return trayMessage_; }
  [[nodiscard]] const GooPanel& tentacleLayer() const { return *tentacleLayer_; }
  // The goo at the top of the screen and the layer a drag is drawn on; null before
  // launch and without a screen.
  [[nodiscard]] NotchController* notch() const { return notch_.get(); }
  [[nodiscard]] DragLayer* dragLayer() const { return drag_.get(); }
  // The tray under the goo and the first-start guide; null before launch and without a
  // screen.
  [[nodiscard]] TrayController* tray() const { return tray_.get(); }
  [[nodiscard]] OnboardingController* onboarding() const { return onboarding_.get(); }
  [[nodiscard]] std::vector<StatusMenuRow> statusMenu();
  // Every capsule the tentacle layer draws at `t`, in the layer's own points.
  [[nodiscard]] GooScene tentacleScene(double t) const;

  // Work a test drives by hand; the application runs them on timers.
  void keepAwakeTick();
  void finishDiscovery(std::vector<InstalledAgent> agents, std::optional<std::string> problem);

  // The text of the agent problem for a discovery result; `missingFlags` answers for
  // the resident tool.
  static std::optional<std::string> agentProblemFor(
      const std::vector<InstalledAgent>& agents,
      const std::function<std::vector<std::string>(const std::string&)>& missingFlags);

 private:
  void buildSurfaces();
  void relayoutSurfaces();
  void startDiscovery();
  void runDemonstrationArguments();
  void wire(PieceController& piece);
  void pieceRetired(PieceController& piece, bool userInitiated);
  std::vector<InstalledAgent> driveableAgents() const;
  std::optional<InstalledAgent> chosenAgent() const;
  void watchFolderOf(const Target& target, bool watch);
  bool provesSender(const PeerRequest& request) const;

  ApplicationContext context_;
  Registry registry_;
  SessionStore store_;
  PieceSnapshots snapshots_;
  std::shared_ptr<ActivityLog> activity_;
  SkillIndex skills_;
  Pieces pieces_;
  PeerRouter router_;
  PieceServices services_;
  std::vector<PieceSnapshot> pendingRestore_;
  std::vector<InstalledAgent> agents_;
  std::optional<std::string> agentProblem_;
  bool discovered_ = false;
  bool launched_ = false;
  bool terminating_ = false;
  bool keepAwakeHeld_ = false;
  bool restoring_ = false;
  std::optional<std::string> trayMessage_;
  void wireNotch();
  void setUpTray(std::unique_ptr<GooPanel> panel);
  void setUpOnboarding(std::unique_ptr<GooPanel> panel);
  bool mayBond();
  NotchActivity notchActivity() const;
  void updateLivePieces();

  std::shared_ptr<NotchController> notch_;
  std::shared_ptr<DragLayer> drag_;
  std::shared_ptr<TrayController> tray_;
  std::shared_ptr<OnboardingController> onboarding_;
  std::unique_ptr<GooPanel> hub_, tentacleLayer_;
  Rect tentacleScreen_;
  std::vector<TimerID> timers_;
  std::map<std::string, int> watchedFolders_;
};

}  // namespace zorvane
