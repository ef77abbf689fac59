// The application run mode: the Qt application, the desktop's services, the surfaces,
// the peer socket and the status item, joined to one AppDelegate.
#include "ui/shell/application.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <memory>
#include <optional>

#include "app/peers/peer_server.h"
#include "app/shell/agents.h"
#include "app/shell/app_delegate.h"
#include "app/shell/desktop_settings.h"
#include "app/shell/selftest.h"
#include "core/base/log.h"
#include "core/base/paths.h"
#include "core/mcp/peer_ipc.h"
#include "platform/application_desktop.h"
#include <QApplication>
#include <QClipboard>
#include <QMessageBox>
#include <QPushButton>
#include <QQmlExtensionPlugin>
#include <QTimer>

#include "ui/cards/card_views.h"
#include "ui/shell/qt_main_queue.h"
#include "ui/shell/qt_surfaces.h"
#include "ui/shell/status_item.h"
#include "ui/shell/unix_signals.h"

// The cards' QML is compiled into the library as a static module.
Q_IMPORT_QML_PLUGIN(Zorvane_UiPlugin)

namespace zorvane {

void runApplication(const CommandLine& commandLine) {
  const char* display = getenv("DISPLAY");
  if (display == nullptr || display[0] == '\0') {
    fprintf(stderr, "zorvane: no X display to show Zorvane on (DISPLAY is not set); start it from an X11 session\n");
    exitProcess(1);
  }
  if (unixSocketAccepts(PeerIPC::addressPath(PeerIPC::socketPath()))) {
    printf("Zorvane is already running.\n");
    exitProcess(0);
  }

  QtSurfaces::prepareGraphics();
  // Qt sees the process's own arguments (its -platform and the like, and --perf for the
  // ink views); they live as long as the application.
  static std::vector<std::string> words = commandLine.arguments();
  static std::vector<char*> pointers;
  for (std::string& word : words) pointers.push_back(word.data());
  pointers.push_back(nullptr);
  static int argc = static_cast<int>(words.size());
  static QApplication app(argc, pointers.data());
  QApplication::setApplicationName("Zorvane");
  QApplication::setQuitOnLastWindowClosed(false);

  static QtMainQueue queue;
  MainQueue::setMain(&queue);
  static SystemClock clock;

  auto opened = ApplicationDesktop::open(queue);
  if (!opened) {
    fprintf(stderr, "zorvane: %s\n", opened.error().c_str());
    exitProcess(1);
  }
  static std::unique_ptr<ApplicationDesktop> desktop = std::move(*opened);
  static QtSurfaces surfaces;

  DesktopServices& services = desktop->services();
  ApplicationContext context{queue,
                             clock,
                             surfaces,
                             services,
                             desktop->fileManager(),
                             desktop->sleepInhibitor(),
                             desktop->hotKey(),
                             desktop->folderWatcher(),
                             desktop->inputMonitor(),
                             commandLine,
                             Paths::dataDirectory(),
                             {Paths::dataDirectory(), Paths::stateDirectory(), Paths::configDirectory()},
                             Paths::settingsFile(),
                             Paths::executablePath(),
                             static_cast<int32_t>(getpid()),
                             AgentFactory::makerOn(queue),
                             [] { return Agents::discover(); },
                             [](const std::string& path) { return Agents::missingClaudeFlags(path); },
                             [&services] { return services.accessibility.trusted(); },
                             [] { return true; }};
  static CardViews cards(clock);
  context.views = cards.views();
  context.bondHotKey = desktop->bondHotKey();
  context.accessibilitySettings = DesktopSettings::accessibilityCommand(Paths::searchPath(), Paths::isExecutableFile);
  static std::shared_ptr<AppDelegate> delegate = std::make_shared<AppDelegate>(std::move(context));

  auto terminate = [] {
    static bool done = false;
    if (done) return;
    done = true;
    delegate->applicationWillTerminate();
    QApplication::quit();
  };
  delegate->quit = terminate;
  delegate->copyToClipboard = [](const std::string& text) {
    QApplication::clipboard()->setText(QString::fromStdString(text));
  };
  delegate->showAlert = [](const Alert& alert) {
    QMessageBox box;
    box.setWindowTitle("Zorvane");
    box.setText(QString::fromStdString(alert.title));
    box.setInformativeText(QString::fromStdString(alert.text));
    QPushButton* settings = nullptr;
    if (alert.openSettings) {
      settings = box.addButton("Open Settings", QMessageBox::AcceptRole);
      box.addButton("Later", QMessageBox::RejectRole);
    } else {
      box.addButton(QMessageBox::Ok);
    }
    box.exec();
    if (settings && box.clickedButton() == static_cast<QAbstractButton*>(settings)) alert.openSettings();
  };

  std::weak_ptr<AppDelegate> weak = delegate;
  static PeerServer peers(
      [weak](const PeerRequest& request, const PeerServer::Completion& done) {
        auto self = weak.lock();
        if (!self || self->isTerminating()) {
          done({false, "Zorvane is shutting down."});
          return;
        }
        self->router().route(request, done);
      },
      queue);
  if (auto started = peers.start(); !started) Log::info("peer socket: " + started.error());

  static StatusItem statusItem([weak] {
    auto self = weak.lock();
    return self ? self->statusMenu() : std::vector<StatusMenuRow>{};
  });
  // `--ink-dump <folder>`: SIGUSR1 stops every goo on its frame and writes the frames
  // out (for comparing the screen with the reference renderer); the next SIGUSR1 lets
  // them run again.
  static std::optional<std::string> inkDump = commandLine.value("--ink-dump");
  if (inkDump) surfaces.keepScenes();
  static UnixSignals unixSignals([terminate](int signal) {
    if (signal != SIGUSR1) {
      Log::info("signal " + std::to_string(signal) + ": quitting");
      terminate();
      return;
    }
    if (!inkDump) return;
    static bool frozen = false;
    frozen = !frozen;
    surfaces.setInkFrozen(frozen);
    if (!frozen) {
      Log::info("ink running");
      return;
    }
    // The frames handed off last reach the screen first; at most a second.
    auto* wait = new QTimer;
    auto started = std::make_shared<int>(0);
    QObject::connect(wait, &QTimer::timeout, [wait, started] {
      if (surfaces.isInkInFlight() && ++*started < 100) return;
      int written = surfaces.dumpInk(*inkDump);
      Log::info("ink frozen: " + std::to_string(written) + " frames in " + *inkDump);
      wait->stop();
      wait->deleteLater();
    });
    wait->start(10);
  });

  delegate->applicationDidFinishLaunching();
  QApplication::exec();
  terminate();
  peers.stop();
  exitProcess(0);
}

}  // namespace zorvane
