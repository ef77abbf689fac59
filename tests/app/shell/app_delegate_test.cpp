#include "app/shell/app_delegate.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <set>

#include "app/peers/peer_server.h"
#include "core/base/file_io.h"
#include "core/base/settings.h"
#include "support/piece_world.h"

namespace zorvane {
namespace {

using testing::FakeAgents;

// An AppDelegate on fakes: a run loop on `clock`, the fake desktop, agents from
// `makeAgent`, its stores in a temporary home.
struct DelegateWorld {
  testing::TempHome home;
  std::shared_ptr<Clock> clock;
  RunLoop queue;
  FakeApplicationServices fakes{queue};
  std::shared_ptr<AppDelegate> delegate;
  std::vector<Alert> alerts;

  DelegateWorld(AgentFactory::Maker makeAgent, std::shared_ptr<Clock> clockToUse, std::vector<std::string> args = {})
      : clock(std::move(clockToUse)), queue(clock) {
    args.insert(args.begin(), "zorvane");
    ApplicationContext context{
        queue, *clock, fakes.surfaces, fakes.desktop.services, fakes.fileManager, fakes.sleepInhibitor,
        &fakes.hotKey, &fakes.folderWatcher, &fakes.inputMonitor, CommandLine(args), home.path() + "/data", {},
        home.path() + "/config/settings.json", ZORVANE_EXECUTABLE, 4242, std::move(makeAgent), nullptr, nullptr,
        [this] { return accessibility; }, [] { return true; }};
    context.bondHotKey = &fakes.bondHotKey;
    context.accessibilitySettings = std::vector<std::string>{"/bin/sh", "-c", "touch \"$0\"", settingsOpened()};
    delegate = std::make_shared<AppDelegate>(std::move(context));
    delegate->showAlert = [this](const Alert& alert) { alerts.push_back(alert); };
  }
  bool accessibility = true;
  // Where the stand-in for the desktop's settings tool leaves its mark.
  std::string settingsOpened() const { return home.path() + "/settings-opened"; }

  // As after the first-start guide, which otherwise shows a second after launch.
  void markOnboarded() {
    ASSERT_TRUE(Settings(home.path() + "/config/settings.json").setBool(SettingsKey::onboarded, true));
  }

  Resolved folder(const std::string& name) {
    std::string path = home.path() + "/" + name;
    (void)createDirectories(path);
    return {Target::folder(URL::fileURL(path, true)), std::make_shared<HiddenAnchor>(Rect{0, 0, 64, 64})};
  }
};

bool fileExists(const std::string& path) { return ::access(path.c_str(), F_OK) == 0; }

InstalledAgent fixtureAgent(const AgentKind& kind) {
  return {kind, std::string(ZORVANE_FIXTURES_DIR) + "/bin/" + kind.id};
}

// Refusals say why and bond nothing; a second drop on a live target makes no second
// piece; the live pieces are saved at quit, before they retire, and offered back.
TEST(AppDelegate, BondsOnlyWhatItMayAndSavesTheLivePiecesAtQuit) {
  FakeAgents agents;
  auto clock = std::make_shared<FakeClock>();
  DelegateWorld world(agents.maker(), clock);
  AppDelegate& app = *world.delegate;
  app.applicationDidFinishLaunching();
  world.queue.runUntilIdle();
  ASSERT_TRUE(app.agentProblem());
  app.bond(Point{10, 10});
  ASSERT_EQ(world.alerts.size(), 1u);
  EXPECT_EQ(world.alerts[0].title, "Zorvane needs an agent");

  app.finishDiscovery({fixtureAgent(AgentKind::claude())}, std::nullopt);
  world.accessibility = false;
  app.bond(Point{10, 10});
  ASSERT_EQ(world.alerts.size(), 2u);
  EXPECT_EQ(world.alerts[1].title, "Zorvane needs Accessibility");
  ASSERT_TRUE(world.alerts[1].openSettings) << "the desktop's settings tool is offered";
  world.alerts[1].openSettings();
  for (int i = 0; i < 500 && ::access(world.settingsOpened().c_str(), F_OK) != 0; ++i) ::usleep(10'000);
  EXPECT_EQ(::access(world.settingsOpened().c_str(), F_OK), 0) << "Open Settings starts the tool";
  world.accessibility = true;
  app.bond(Point{10, 10});  // nothing on the fake screen
  EXPECT_TRUE(app.pieces().empty());

  app.bond(world.folder("A"), {0, 0}, std::nullopt, true);
  app.bond(world.folder("A"), {0, 0}, std::nullopt, true);
  app.bond(world.folder("B"), {0, 0}, std::nullopt, true);
  EXPECT_EQ(app.pieces().size(), 2u);
  EXPECT_EQ(agents.made.size(), 2u);
  app.keepAwakeTick();
  EXPECT_FALSE(app.keepsAwake());
  app.pieces().begin()->second->ask("busy now");
  app.keepAwakeTick();
  EXPECT_EQ(world.fakes.sleepInhibitor.state(), SleepHold::held);

  app.applicationWillTerminate();
  EXPECT_TRUE(app.pieces().empty());
  EXPECT_EQ(world.fakes.sleepInhibitor.state(), SleepHold::released);
  for (const auto& agent : agents.made) EXPECT_TRUE(agent->terminated);
  PieceSnapshots saved(world.home.path() + "/data/live-pieces.json");
  EXPECT_EQ(saved.load().size(), 2u) << "retiring at quit must not take the pieces out of the file";
}

// The approval road of a gated agent, end to end through real processes: the turn-based
// agent's tool server asks over the real peer socket, the piece shows the card, and
// the user's verdict decides whether the file is written.
TEST(AppDelegate, GatedAgentWritesOnlyWithTheUsersAllow) {
  testing::TempDir scratch;
  std::string target = scratch.path() + "/out.txt";
  std::string scenario = scratch.write(
      "scenario.json", R"({"turns": [[{"threadStarted": true}, {"turnStarted": true},
        {"mcpCall": {"tool": "write_file", "arguments": {"path": ")" + target + R"(", "content": "hello"}}},
        {"agentMessage": "finished"}, {"turnCompleted": true}]]})");
  testing::ScopedEnv scenarioEnv("STANDIN_SCENARIO", scenario);
  testing::ScopedEnv stateEnv("STANDIN_STATE_DIR", scratch.path() + "/state");
  testing::ScopedEnv socketEnv("ZORVANE_IPC_SOCK", scratch.path() + "/ipc.sock");
  RunLoop* loop = nullptr;
  AgentFactory::Maker maker = [&loop](const AgentFactory::Request& request) {
    return AgentFactory::make(request, *loop);
  };
  DelegateWorld world(maker, std::make_shared<SystemClock>());
  loop = &world.queue;
  AppDelegate& app = *world.delegate;
  PeerServer peers([&app](const PeerRequest& request, const PeerServer::Completion& done) {
    app.router().route(request, done);
  }, world.queue);
  ASSERT_TRUE(peers.start());
  app.finishDiscovery({fixtureAgent(AgentKind::codex())}, std::nullopt);
  app.bond(world.folder("repo"), {0, 0}, std::nullopt, true);
  ASSERT_EQ(app.pieces().size(), 1u);
  PieceController& piece = *app.pieces().begin()->second;

  for (bool allow : {false, true}) {
    SCOPED_TRACE(allow ? "allowed" : "denied");
    piece.ask("write the file");
    ASSERT_TRUE(world.queue.runUntil([&] { return piece.state().pending.has_value(); }, 60));
    EXPECT_EQ(piece.state().pending->detail, target);
    EXPECT_FALSE(fileExists(target));
    piece.decide(allow);
    ASSERT_TRUE(world.queue.runUntil([&] { return !piece.state().busy; }, 60));
    EXPECT_EQ(fileExists(target), allow);
  }
  std::string audit = testing::readAll(world.home.path() + "/data/audit.log");
  EXPECT_NE(audit.find("\"allowed\":false"), std::string::npos);
  EXPECT_NE(audit.find("\"allowed\":true"), std::string::npos);
  app.applicationWillTerminate();
}

// The goo pulled off the notch with the pointer: a pull past the pinch bonds the window
// under the goo's tip and the tip stays for the new piece; a short tug bonds nothing
// and the goo goes home; an arm from the knot gives the piece a second target, and one
// dropped on another piece's target links the two.
TEST(AppDelegate, PullingTheGooOntoWindowsBondsAttachesAndLinks) {
  FakeAgents agents;
  auto clock = std::make_shared<FakeClock>();
  DelegateWorld world(agents.maker(), clock);
  auto& windows = world.fakes.desktop.windows;
  windows.applications = {{500, {"org.example.Editor", "Editor"}}, {501, {"org.example.Viewer", "Viewer"}}};
  windows.windowList = {{30, 500, 600, 400, 400, 300, 0, "notes", true},
                        {31, 501, 100, 500, 300, 300, 0, "pictures", true}};
  world.markOnboarded();
  AppDelegate& app = *world.delegate;
  app.applicationDidFinishLaunching();
  app.finishDiscovery({fixtureAgent(AgentKind::claude())}, std::nullopt);
  auto notchPanel = world.fakes.surfaces.named("Zorvane").front();
  auto dragPanel = world.fakes.surfaces.named("drag layer").front();
  auto frames = [&](int count) {
    for (int i = 0; i < count; ++i) {
      clock->advance(1.0 / 120);
      world.queue.runUntilIdle();
      if (dragPanel->visible) (void)dragPanel->scene(clock->wallSeconds(), dragPanel->frame.size());
    }
  };
  auto drag = [&](const PointerHandlers& pointer, Point from, Point to) {
    pointer.onDown(from);
    for (int step = 1; step <= 30; ++step) {
      pointer.onDrag(from + (to - from) * (step / 30.0));
      frames(2);
    }
    frames(30);
    pointer.onUp(to, true);
    world.queue.runUntilIdle();
  };
  Rect band = app.notch()->notchRect();
  Point atNotch{band.x + 70, band.y + 12};

  drag(notchPanel->pointer, atNotch, atNotch + Point{0, 40});
  EXPECT_TRUE(app.pieces().empty()) << "a tug that doesn't pinch bonds nothing";
  ASSERT_TRUE(app.dragLayer()->retracting());
  EXPECT_FALSE(app.dragLayer()->retracting()->keepTip);
  frames(80);
  EXPECT_FALSE(dragPanel->visible);

  drag(notchPanel->pointer, atNotch, {800, 550});
  ASSERT_EQ(app.pieces().size(), 1u);
  auto editor = app.pieces().begin()->second;
  EXPECT_EQ(editor->target().targetKey(), "window:org.example.Editor:30");
  EXPECT_TRUE(app.dragLayer()->retracting()->keepTip) << "the tip merges into the new piece";
  EXPECT_EQ(app.notch()->livePieces, 1);

  // The knot's arm onto the second window: one more target for the same piece.
  auto handle = world.fakes.surfaces.named("knot").front();
  Point knot = editor->look().knot();
  drag(handle->pointer, knot, {250, 650});
  EXPECT_EQ(app.dragLayer()->mode(), DragLayer::Mode::tentacle);
  ASSERT_EQ(editor->tentacles().size(), 1u);
  EXPECT_EQ(editor->tentacles()[0].target.targetKey(), "window:org.example.Viewer:31");
  EXPECT_EQ(app.pieces().size(), 1u);

  // A second piece on the viewer; the editor's arm dropped on it links the two.
  frames(80);
  drag(notchPanel->pointer, atNotch, {250, 650});
  ASSERT_EQ(app.pieces().size(), 2u);
  drag(handle->pointer, knot, {250, 650});
  EXPECT_EQ(editor->links().size(), 1u);
  EXPECT_EQ(editor->tentacles().size(), 1u);
  app.applicationWillTerminate();
}

// Lets `seconds` pass on the fake clock in steps of the tray's tick.
void pass(DelegateWorld& world, FakeClock& clock, double seconds) {
  for (double done = 0; done < seconds - 1e-9; done += TrayController::kTickInterval) {
    clock.advance(TrayController::kTickInterval);
    world.queue.runUntilIdle();
  }
}

// A first start shows the guide after a second, and the tray keeps out of its way;
// finishing it is remembered, so a later start shows it only when asked.
TEST(AppDelegate, FirstStartShowsTheGuide) {
  FakeAgents agents;
  struct Case {
    std::vector<std::string> args;
    bool onboarded;
    bool shows;
  };
  for (const Case& c : std::vector<Case>{{{}, false, true}, {{}, true, false}, {{"--onboarding"}, true, true}}) {
    SCOPED_TRACE(std::string(c.onboarded ? "onboarded" : "first start") + (c.args.empty() ? "" : " --onboarding"));
    auto clock = std::make_shared<FakeClock>();
    DelegateWorld world(agents.maker(), clock, c.args);
    std::string settingsPath = world.home.path() + "/config/settings.json";
    if (c.onboarded) world.markOnboarded();
    AppDelegate& app = *world.delegate;
    app.applicationDidFinishLaunching();
    ASSERT_TRUE(app.onboarding());
    pass(world, *clock, 0.9);
    EXPECT_FALSE(app.onboarding()->panel().isVisible());
    pass(world, *clock, 0.3);
    EXPECT_EQ(app.onboarding()->panel().isVisible(), c.shows);
    if (!c.shows) continue;
    Rect band = app.notch()->notchRect();
    world.fakes.surfaces.pointerAt = {band.x + 70, band.y + 10};
    pass(world, *clock, 1);
    EXPECT_FALSE(app.tray()->panel().isVisible()) << "the tray stays hidden under the guide";
    app.onboarding()->finish();
    pass(world, *clock, 0.5);
    EXPECT_FALSE(app.onboarding()->panel().isVisible());
    EXPECT_EQ(Settings(settingsPath).boolValue(SettingsKey::onboarded), true);
    pass(world, *clock, 1);
    EXPECT_TRUE(app.tray()->panel().isVisible()) << "with the guide gone, the resting pointer shows the tray";
  }
}

// Pieces of the last run: the tray shows the offer a moment after launch and stays up,
// pinned, with the pointer away. A restore that finds nothing says so in the tray, once:
// the offer ends in memory and on disk.
TEST(AppDelegate, RestoreOfferPinsTheTray) {
  FakeAgents agents;
  auto clock = std::make_shared<FakeClock>();
  DelegateWorld world(agents.maker(), clock);
  world.markOnboarded();
  PieceSnapshots file(world.home.path() + "/data/live-pieces.json");
  file.save({{Target::folder(URL::fileURL(world.home.path() + "/gone", true)), UUID(), "gone", {}},
             {Target::folder(URL::fileURL(world.home.path() + "/away", true)), UUID(), "away", {}}});
  AppDelegate& app = *world.delegate;
  app.applicationDidFinishLaunching();
  app.finishDiscovery({fixtureAgent(AgentKind::claude())}, std::nullopt);
  TrayController& tray = *app.tray();
  pass(world, *clock, 1.0);
  EXPECT_FALSE(tray.panel().isVisible());
  EXPECT_FALSE(app.onboarding()->panel().isVisible());
  pass(world, *clock, 0.4);
  ASSERT_TRUE(tray.panel().isVisible());
  EXPECT_EQ(tray.model().restoreHeading(), "2 pieces open when Zorvane closed");
  EXPECT_EQ(tray.model().restoreNames(), (std::vector<std::string>{"gone", "away"}));
  pass(world, *clock, 10);
  EXPECT_TRUE(tray.panel().isVisible()) << "pinned for 12 s with the pointer away";
  pass(world, *clock, 3);
  EXPECT_FALSE(tray.panel().isVisible());

  // A live piece shows as a row; "Bring them back" finds neither folder.
  app.bond(world.folder("here"), {0, 0}, std::nullopt, true);
  ASSERT_EQ(tray.model().live.size(), 1u);
  EXPECT_EQ(tray.model().live[0].name, "here");
  EXPECT_EQ(tray.model().live[0].image(), "folder");
  tray.restoreAll();
  world.queue.runUntilIdle();
  EXPECT_TRUE(tray.model().restore.empty());
  EXPECT_EQ(tray.model().message, "Couldn't find gone, away on screen. Open it and pick it from the list.");
  EXPECT_TRUE(app.pendingRestore().empty());
  EXPECT_EQ(app.pieces().size(), 1u);
  ASSERT_EQ(file.load().size(), 1u) << "only the live piece is left on disk";
  EXPECT_EQ(file.load()[0].displayName, "here");
  EXPECT_TRUE(tray.panel().isVisible()) << "a message shows the tray";
  pass(world, *clock, 4);
  EXPECT_TRUE(tray.panel().isVisible());
  pass(world, *clock, 2);
  EXPECT_FALSE(tray.panel().isVisible());
  app.applicationWillTerminate();
}

// The bond shortcut bonds the window that has the keyboard, as a drop on it would: an
// app window, a browser's front tab, a file manager's folder; with one of Zorvane's own
// windows focused, the front window of another program.
TEST(AppDelegate, BondShortcutBondsTheFocusedWindow) {
  FakeAgents agents;
  auto clock = std::make_shared<FakeClock>();
  DelegateWorld world(agents.maker(), clock);
  auto& windows = world.fakes.desktop.windows;
  windows.applications = {{500, {"org.example.Editor", "Editor"}},
                          {501, {"org.example.Viewer", "Viewer"}},
                          {502, {"org.chromium.Chromium", "Chromium"}},
                          {503, {"org.xfce.Thunar", "Thunar"}}};
  windows.windowList = {{90, 4242, 800, 60, 300, 200, 0, "bubble", true},
                        {31, 501, 100, 500, 300, 300, 0, "pictures", true},
                        {30, 500, 600, 400, 400, 300, 0, "notes", true},
                        {32, 502, 0, 0, 900, 700, 0, "Example - Chromium", true},
                        {33, 503, 50, 50, 600, 400, 0, "docs - Thunar", true}};
  std::string docs = world.home.path() + "/docs";
  ASSERT_TRUE(createDirectories(docs));
  auto thunarWindow = FakeElement::make("AXWindow", "docs - Thunar", Rect{50, 50, 600, 400});
  thunarWindow->folderPath = docs;
  world.fakes.desktop.accessibility.windowsByPID[503] = {thunarWindow};
  world.fakes.desktop.browsers.frontTabAnswer = "https://example.com/page\nExample";
  AppDelegate& app = *world.delegate;
  app.applicationDidFinishLaunching();
  EXPECT_EQ(world.fakes.bondHotKey.registered,
            (std::pair<uint16_t, uint64_t>{11, KeyFlags::control | KeyFlags::option | KeyFlags::command}));
  EXPECT_NE(world.fakes.bondHotKey.registered, world.fakes.hotKey.registered);

  windows.active = 30;
  world.fakes.bondHotKey.press();
  EXPECT_TRUE(app.pieces().empty()) << "no agent yet: nothing is bonded";
  ASSERT_EQ(world.alerts.size(), 1u);
  EXPECT_EQ(world.alerts[0].title, "Zorvane needs an agent");

  app.finishDiscovery({fixtureAgent(AgentKind::claude())}, std::nullopt);
  auto keys = [&] {
    std::set<std::string> found;
    for (const auto& [id, piece] : app.pieces()) found.insert(piece->target().targetKey());
    return found;
  };
  world.fakes.bondHotKey.press();
  EXPECT_EQ(keys(), (std::set<std::string>{"window:org.example.Editor:30"}));
  auto editor = app.pieces().begin()->second;
  EXPECT_EQ(editor->anchor()->frame(), (Rect{600, 400, 400, 300}));

  windows.active = 90;
  world.fakes.bondHotKey.press();
  EXPECT_EQ(keys(), (std::set<std::string>{"window:org.example.Editor:30", "window:org.example.Viewer:31"}));

  windows.active = 32;
  world.fakes.bondHotKey.press();
  EXPECT_TRUE(keys().count("tab:https://example.com/page"));

  windows.active = 33;
  world.fakes.bondHotKey.press();
  EXPECT_TRUE(keys().count("folder:" + docs)) << "the folder the file manager shows";

  windows.active.reset();
  world.fakes.bondHotKey.press();
  EXPECT_EQ(app.pieces().size(), 4u);
  app.applicationWillTerminate();
}

}  // namespace
}  // namespace zorvane
