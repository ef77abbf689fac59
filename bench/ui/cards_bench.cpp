// The bubble card's speed in a real window: a piece on the in-memory desktop
// (platform/fake), its BubbleAdapter, and bubble/Bubble.qml loaded by CardViews as the
// application loads it, on a shown, active QQuickWindow.
//
//   answer 2 KB / 100 KB   from the adapter being handed a state whose answer is new
//                          (the piece's change callback) to the end of the first frame
//                          that shows it: the first frame synchronised after the change
//                          in which the Markdown view holds every block and shows the
//                          first. Realistic answers: headings, paragraphs with bold, code
//                          and citations, lists, a table, fenced code. Goals 16 and
//                          100 ms; baseline: MarkdownBlocks::parse alone on the same text.
//   key while streaming    from a key press sent to the ask field to the end of the
//                          first frame whose field holds the character, over ~100 presses
//                          while the piece's state changes at 200 Hz as during a turn:
//                          a transcript line and a working line through
//                          PieceController::handle, and the answer growing by a line.
//                          Goal 16 ms at the median and the 95th percentile; baseline:
//                          the same presses with no stream.
//
// The piece's controller hides the ask field while it is busy, so the streamed turn is
// driven without the busy flag: everything it updates is on screen (the transcript with
// the peek open) and the field can take keys.
//
// Frames are seen on the render thread: afterSynchronizing marks the first frame that
// took in a change (the GUI thread is blocked meanwhile, so the check reads the items
// safely), frameSwapped ends it. Needs a display: run it as
//   scripts/headless-desktop.sh build/bench/cards_bench
// It prints a table and FIGURE lines (figure_line.h). This program reports; it never
// fails a build.
#include <QApplication>
#include <QEventLoop>
#include <QKeyEvent>
#include <QMetaObject>
#include <QQuickItem>
#include <QQuickWindow>
#include <QThread>
#include <QTimer>
#include <QSurfaceFormat>
#include <QtQml/QQmlExtensionPlugin>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "app/pieces/piece_controller.h"
#include "core/agent/citations.h"
#include "core/agent/markdown_blocks.h"
#include "core/base/run_loop.h"
#include "platform/fake/fake_application_services.h"
#include "ui/adapters/bubble_adapter.h"
#include "ui/cards/card_views.h"
#include "ui/shell/qt_surfaces.h"
#include "../figure_line.h"

Q_IMPORT_QML_PLUGIN(Zorvane_UiPlugin)

namespace zorvane {
namespace {

using Steady = std::chrono::steady_clock;

constexpr double kSmallGoalMs = 16, kLargeGoalMs = 100, kKeyGoalMs = 16;
constexpr int kSmallRuns = 30, kLargeRuns = 12, kWarmups = 2, kPresses = 100;
constexpr int kStreamIntervalMs = 5;  // 200 lines a second
constexpr int kFrameTimeoutMs = 5000;

double milliseconds(Steady::duration d) { return std::chrono::duration<double, std::milli>(d).count(); }

// Nearest rank: the smallest value with at least `fraction` of them at or below it.
double percentile(std::vector<double> values, double fraction) {
  if (values.empty()) return NAN;
  std::sort(values.begin(), values.end());
  size_t rank = size_t(std::ceil(fraction * double(values.size())));
  return values[std::clamp<size_t>(rank, 1, values.size()) - 1];
}

// Turns the event loop for `ms` milliseconds.
void turn(int ms) {
  QEventLoop loop;
  QTimer::singleShot(ms, &loop, &QEventLoop::quit);
  loop.exec();
}

class IdleAgent final : public AgentTransport {
 public:
  bool isRunning() const override { return true; }
  std::optional<std::string> externalSessionID() const override { return std::nullopt; }
  Expected<void> start() override { return ok(); }
  void send(const std::string&) override {}
  void respond(const PermissionRequest&, bool) override {}
  void terminate() override {}
};

// One piece bonded to an editor window of the in-memory desktop.
struct World {
  std::string folder =
      std::filesystem::temp_directory_path() / ("zorvane-cards-bench-" + std::to_string(::getpid()));
  std::shared_ptr<FakeClock> clock = std::make_shared<FakeClock>();
  RunLoop queue{clock};
  FakeApplicationServices fakes{queue};
  Registry registry;
  SessionStore store{folder + "/sessions.json"};
  std::shared_ptr<ActivityLog> activity = ActivityLog::make(folder + "/activity.json", queue);
  SkillIndex skills{folder + "/skills.json"};
  PieceServices services{queue,
                         *clock,
                         fakes.surfaces,
                         fakes.desktop.services,
                         registry,
                         store,
                         *activity,
                         skills,
                         [](const AgentFactory::Request&) -> Expected<std::shared_ptr<AgentTransport>> {
                           return std::shared_ptr<AgentTransport>(std::make_shared<IdleAgent>());
                         },
                         folder + "/sessions",
                         folder + "/audit.log",
                         "/usr/bin/zorvane",
                         1,
                         nullptr};
  std::shared_ptr<PieceController> piece;

  World() {
    std::filesystem::create_directories(folder);
    fakes.desktop.windows.windowList.push_back({100, 7, 60, 80, 640, 480, 0, "Report.md", true});
    Target target = Target::window(7, 100, "org.example.Editor", "Editor", "Report.md");
    auto anchor = std::make_shared<WindowAnchor>(fakes.desktop.windows, 100, Rect{60, 80, 640, 480}, true);
    piece = PieceController::make(services, registry.bond(target).entry, std::nullopt, Resolved{target, anchor},
                                  {0, 0}, {AgentKind::claude(), "/usr/bin/claude"}, false, false);
    piece->mutableState().lastQuestion = "Summarise the quarter's invoices";
  }
  ~World() {
    piece.reset();
    std::filesystem::remove_all(folder);
  }
  // What the controller does after each change of the state.
  void changed() {
    if (piece->mutableState().onChange) piece->mutableState().onChange();
  }
};

// The Markdown blocks of a real answer, in turn, section after section.
class AnswerWriter {
 public:
  std::string next() {
    std::string n = std::to_string(section_ / kParts + 1);
    switch (section_++ % kParts) {
      case 0:
        return "## Invoices of batch " + n + "\n\n";
      case 1:
        return "The invoice from **ACME Supplies** is due on **3 May** [[cite: invoice-" + n +
               ".pdf | page 2]], and its amount matches the order `PO-" + n +
               "` [[cite: orders.csv | line 3]].\nNothing else in the folder stands out.\n\n";
      case 2:
        return "- Pay by transfer to the usual account\n- Keep the receipt with `invoice-" + n +
               ".pdf` [[cite: invoice-" + n + ".pdf]]\n- Tell **Finance** once it is paid\n\n";
      case 3:
        return "| Item | Qty | Amount |\n|------|----:|-------:|\n| Pens | 3 | 12.00 |\n| Paper | " + n +
               " | 4.50 |\n\n";
      case 4:
        return "1. Open the bank app\n2. Pay the total\n3. File the receipt under `paid/`\n\n";
      default:
        return "```sh\nmv invoice-" + n + ".pdf paid/\nls paid | wc -l\n```\n\n";
    }
  }

 private:
  static constexpr int kParts = 6;
  int section_ = 0;
};

// Whole blocks up to about `bytes`.
std::string realisticAnswer(size_t bytes) {
  AnswerWriter writer;
  std::string text = "# Quarterly invoices\n\n";
  for (std::string block = writer.next(); text.size() + block.size() <= bytes; block = writer.next()) text += block;
  return text;
}

// Watches one window's frames. `changed` numbers a change made on the GUI thread;
// `waitForFrame` runs the event loop until the end of the first frame synchronised after
// that change in which `shows` holds (called on the render thread while the GUI thread
// waits for the synchronisation), and gives the time that frame was swapped.
class FrameProbe {
 public:
  explicit FrameProbe(QQuickWindow* window) : window_(window) {
    QObject::connect(window, &QQuickWindow::afterSynchronizing, window, [this] { synchronized(); },
                     Qt::DirectConnection);
    QObject::connect(window, &QQuickWindow::frameSwapped, window, [this] { swapped(); }, Qt::DirectConnection);
  }

  uint64_t changed() { return ++changes_; }

  std::optional<Steady::time_point> waitForFrame(uint64_t change, std::function<bool()> shows) {
    QEventLoop loop;
    {
      std::lock_guard lock(mutex_);
      wanted_ = change;
      shows_ = std::move(shows);
      holding_ = false;
      done_.reset();
      loop_ = &loop;
    }
    window_->update();
    QTimer::singleShot(kFrameTimeoutMs, &loop, &QEventLoop::quit);
    loop.exec();
    std::lock_guard lock(mutex_);
    loop_ = nullptr;
    shows_ = nullptr;
    return done_;
  }

  bool threaded() const { return renderThread_ != nullptr && renderThread_ != QThread::currentThread(); }

 private:
  void synchronized() {
    std::lock_guard lock(mutex_);
    if (!loop_ || done_ || holding_) return;
    holding_ = changes_.load() >= wanted_ && shows_ && shows_();
  }
  void swapped() {
    Steady::time_point now = Steady::now();
    renderThread_ = QThread::currentThread();
    std::lock_guard lock(mutex_);
    if (!loop_ || done_) return;
    if (!holding_) {
      // Not shown yet: another frame, whether or not anything asks for one.
      QMetaObject::invokeMethod(window_, &QQuickWindow::update, Qt::QueuedConnection);
      return;
    }
    done_ = now;
    QMetaObject::invokeMethod(loop_, &QEventLoop::quit, Qt::QueuedConnection);
  }

  QQuickWindow* window_;
  std::atomic<uint64_t> changes_{0};
  std::atomic<QThread*> renderThread_{nullptr};
  std::mutex mutex_;
  uint64_t wanted_ = 0;
  std::function<bool()> shows_;
  bool holding_ = false;
  std::optional<Steady::time_point> done_;
  QEventLoop* loop_ = nullptr;
};

// Breadth first, the first item under `root` for which `match` holds.
QQuickItem* findItem(QQuickItem* root, const std::function<bool(QQuickItem*)>& match) {
  std::vector<QQuickItem*> queue{root};
  for (size_t i = 0; i < queue.size(); ++i) {
    if (match(queue[i])) return queue[i];
    for (QQuickItem* child : queue[i]->childItems()) queue.push_back(child);
  }
  return nullptr;
}

struct Card {
  QQuickWindow* window = nullptr;
  BubbleAdapter* adapter = nullptr;
  QQuickItem* root = nullptr;
  QQuickItem* markdown = nullptr;  // the answer's list view
  QQuickItem* field = nullptr;     // the ask field
};

// The answer's list view holds `blocks` rows and shows the first.
bool showsAnswer(QQuickItem* view, int blocks) {
  if (!view->isVisible() || view->property("count").toInt() != blocks) return false;
  QQuickItem* first = nullptr;
  QMetaObject::invokeMethod(view, "itemAtIndex", Qt::DirectConnection, Q_RETURN_ARG(QQuickItem*, first),
                            Q_ARG(int, 0));
  return first != nullptr && first->isVisible();
}

// Milliseconds from handing the adapter a new answer to its frame, once per run.
std::vector<double> timeAnswers(World& world, Card& card, FrameProbe& probe, const std::string& text, int runs) {
  PieceState& state = world.piece->mutableState();
  ParsedCitations parsed = parseCitations(text);
  std::vector<double> times;
  for (int run = 0; run < kWarmups + runs; ++run) {
    state.answer.reset();
    world.changed();
    probe.waitForFrame(probe.changed(), [&] { return !card.markdown->isVisible(); });
    turn(30);
    state.answer = parsed;
    Steady::time_point start = Steady::now();
    world.changed();
    // The card reads the piece when its next frame begins: the blocks are counted then.
    auto shown = probe.waitForFrame(probe.changed(), [&] {
      int blocks = card.adapter->answer()->rowCount();
      return blocks > 0 && showsAnswer(card.markdown, blocks);
    });
    if (!shown) return {};
    if (run >= kWarmups) times.push_back(milliseconds(*shown - start));
  }
  return times;
}

double medianParse(const std::string& text, int runs) {
  std::vector<double> times;
  for (int i = 0; i < std::max(runs, 50); ++i) {
    Steady::time_point start = Steady::now();
    std::vector<MDBlock> blocks = MarkdownBlocks::parse(text);
    times.push_back(milliseconds(Steady::now() - start));
    if (blocks.empty()) return NAN;
  }
  return percentile(times, 0.5);
}

// The state changes of a running turn, 200 a second: a raw transcript line, a working
// line from a tool use, and the answer one line longer.
class Stream {
 public:
  explicit Stream(World& world) : world_(world), answer_(realisticAnswer(100 * 1024)) {
    timer_.setTimerType(Qt::PreciseTimer);
    timer_.setInterval(kStreamIntervalMs);
    QObject::connect(&timer_, &QTimer::timeout, [this] { tick(); });
  }
  void start() {
    ticks_ = 0;
    begun_ = Steady::now();
    timer_.start();
  }
  void stop() {
    timer_.stop();
    ended_ = Steady::now();
  }
  double rate() const { return ticks_ / std::chrono::duration<double>(ended_ - begun_).count(); }
  // Milliseconds the GUI thread spent in one tick, on average: in all, and on the
  // transcript line (0), the working line (1) and the longer answer (2).
  double tickCost() const { return cost(0) + cost(1) + cost(2); }
  double cost(int change) const { return ticks_ > 0 ? busy_[change] / ticks_ : NAN; }

 private:
  void tick() {
    std::string n = std::to_string(++ticks_);
    Steady::time_point start = Steady::now();
    world_.piece->handle(AgentEvent{AgentEvent::Raw{
        R"({"type":"assistant","message":{"content":[{"type":"tool_use","id":"t)" + n +
        R"(","name":"Read","input":{"file_path":"/home/me/invoices/invoice-)" + n + R"(.pdf"}}]}})"}});
    Steady::time_point transcript = Steady::now();
    JSONObject input;
    input["file_path"] = "/home/me/invoices/invoice-" + n + ".pdf";
    world_.piece->handle(AgentEvent{AgentEvent::Stream{StreamEvent{StreamEvent::ToolUse{"t" + n, "Read", input}}}});
    Steady::time_point working = Steady::now();
    shown_ = answer_.find('\n', shown_ + 1);
    if (shown_ == std::string::npos) shown_ = 0;
    world_.piece->mutableState().answer = parseCitations(std::string_view(answer_).substr(0, shown_ + 1));
    world_.changed();
    Steady::time_point end = Steady::now();
    busy_[0] += milliseconds(transcript - start);
    busy_[1] += milliseconds(working - transcript);
    busy_[2] += milliseconds(end - working);
  }

  World& world_;
  std::string answer_;
  size_t shown_ = 0;
  QTimer timer_;
  int ticks_ = 0;
  double busy_[3] = {0, 0, 0};
  Steady::time_point begun_, ended_;
};

// Milliseconds from each key press in the ask field to its frame.
std::vector<double> timeKeys(Card& card, FrameProbe& probe) {
  std::vector<double> times;
  for (int press = 0; press < kPresses; ++press) {
    QString letter(QChar('a' + press % 26));
    int length = card.field->property("text").toString().size() + 1;
    QKeyEvent down(QEvent::KeyPress, Qt::Key_A + press % 26, Qt::NoModifier, letter);
    Steady::time_point start = Steady::now();
    QGuiApplication::sendEvent(card.window, &down);
    auto shown = probe.waitForFrame(probe.changed(), [&] {
      QString text = card.field->property("text").toString();
      return text.size() == length && text.endsWith(letter);
    });
    QKeyEvent up(QEvent::KeyRelease, Qt::Key_A + press % 26, Qt::NoModifier, letter);
    QGuiApplication::sendEvent(card.window, &up);
    if (!shown) return {};
    times.push_back(milliseconds(*shown - start));
    // Presses at uneven moments, so that they don't lock onto the stream's ticks.
    turn(20 + (press * 7) % 23);
  }
  return times;
}

struct Row {
  std::string figure;
  std::vector<double> times;
  double goal;
  double baseline;
  std::string baselineName;
  std::string why;  // when not measured
};

void printRows(const std::vector<Row>& rows) {
  std::printf("\n%-42s %9s %9s %8s %12s %11s  %s\n", "figure", "median ms", "p95 ms", "goal ms", "baseline ms",
              "/ baseline", "");
  for (const Row& row : rows) {
    if (row.times.empty()) {
      std::printf("%-42s not measured: %s\n", row.figure.c_str(), row.why.c_str());
      continue;
    }
    double median = percentile(row.times, 0.5), p95 = percentile(row.times, 0.95);
    char baseline[32] = "-", ratio[32] = "-";
    if (!std::isnan(row.baseline)) {
      std::snprintf(baseline, sizeof baseline, "%.3f", row.baseline);
      std::snprintf(ratio, sizeof ratio, "%.1f", median / row.baseline);
    }
    std::printf("%-42s %9.2f %9.2f %8g %12s %11s  %s   (%s, %zu runs)\n", row.figure.c_str(), median, p95, row.goal,
                baseline, ratio,
                median <= row.goal ? "met" : "MISSED", row.baselineName.c_str(), row.times.size());
  }
}

}  // namespace
}  // namespace zorvane

int main(int argc, char** argv) {
  using namespace zorvane;
  if (!std::getenv("DISPLAY")) {
    std::printf("cards_bench: needs a display; run it as scripts/headless-desktop.sh %s\n", argv[0]);
    printNotRun("no display (run under scripts/headless-desktop.sh)");
    return 0;
  }
  QtSurfaces::prepareGraphics();
  QApplication app(argc, argv);
  SystemClock clock;
  World world;
  CardViews views(clock);

  // A window like the bubble's panel: frameless, with an alpha channel, taking keys.
  std::unique_ptr<QQuickWindow> window = std::make_unique<QQuickWindow>();
  Card card;
  card.window = window.get();
  card.window->setFlags(Qt::Window | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint);
  QSurfaceFormat format = QSurfaceFormat::defaultFormat();
  format.setAlphaBufferSize(8);
  card.window->setFormat(format);
  card.window->setColor(Qt::transparent);
  card.window->setTitle("Zorvane bubble");
  card.window->setGeometry(400, 10, int(PieceController::kBubbleWidth), 780);
  card.adapter = new BubbleAdapter(world.piece, [&clock] { return clock.wallNow(); }, card.window);
  card.root = views.showBubble(card.window, card.adapter);
  if (!card.root) {
    printNotRun("bubble/Bubble.qml did not load (see the log above)");
    return 1;
  }
  FrameProbe probe(card.window);
  card.window->show();
  card.window->requestActivate();
  for (int i = 0; i < 200 && !card.window->isActive(); ++i) turn(25);
  card.markdown = findItem(card.root, [&](QQuickItem* item) {
    return qvariant_cast<QObject*>(item->property("model")) == card.adapter->answer();
  });
  card.field = card.window->activeFocusItem();
  if (!card.window->isActive() || !card.markdown || !card.field || !card.field->inherits("QQuickTextInput")) {
    std::printf("cards_bench: the bubble's window is %s, its answer view %s, the focus on %s\n",
                card.window->isActive() ? "active" : "not active", card.markdown ? "found" : "not found",
                card.field ? card.field->metaObject()->className() : "nothing");
    printNotRun("the bubble's window didn't come up with the ask field focused");
    return 1;
  }

  struct AnswerRun {
    int kilobytes, runs;
    double goal;
  };
  std::vector<Row> rows;
  for (AnswerRun size : {AnswerRun{2, kSmallRuns, kSmallGoalMs}, AnswerRun{100, kLargeRuns, kLargeGoalMs}}) {
    std::string text = realisticAnswer(size_t(size.kilobytes) * 1024);
    Row row{"answer " + std::to_string(size.kilobytes) + " KB to its frame",
            timeAnswers(world, card, probe, text, size.runs),
            size.goal,
            medianParse(text, size.runs),
            "MarkdownBlocks::parse alone",
            "no frame showed it"};
    row.figure += " (" + std::to_string(card.adapter->answer()->rowCount()) + " blocks)";
    rows.push_back(row);
  }
  world.piece->mutableState().answer.reset();
  world.changed();
  turn(100);

  // Typing: first alone, then with the peek open on a streaming turn.
  std::vector<double> alone = timeKeys(card, probe);
  if (QQuickItem* bubbleCard = findItem(card.root, [](QQuickItem* item) {
        return item->metaObject()->indexOfProperty("peek") >= 0;
      }))
    bubbleCard->setProperty("peek", true);
  card.adapter->setDraft("");
  world.changed();
  Stream stream(world);
  stream.start();
  turn(500);
  std::vector<double> streaming = timeKeys(card, probe);
  stream.stop();
  double median = percentile(alone, 0.5);
  rows.push_back({"key to its frame, no stream", alone, kKeyGoalMs, NAN, "-", "no frame showed the key"});
  char streamed[64];
  std::snprintf(streamed, sizeof streamed, "key to its frame, streaming (%.0f/s)", stream.rate());
  rows.push_back({streamed, streaming, kKeyGoalMs, median, "the same with no stream", "no frame showed the key"});

  std::printf("cards_bench: Bubble.qml in a %dx%d window, %s render loop\n", card.window->width(),
              card.window->height(), probe.threaded() ? "threaded" : "basic");
  printRows(rows);
  std::printf("the stream asked for %d ticks a second and got %.0f; each took the GUI thread %.2f ms: %.2f for the\n"
              "transcript line, %.2f for the working line, %.2f for the answer one line longer (%lld citations)\n",
              1000 / kStreamIntervalMs, stream.rate(), stream.tickCost(), stream.cost(0), stream.cost(1),
              stream.cost(2), (long long)card.adapter->citations().size());

  auto figure = [](const std::vector<double>& times, double fraction) {
    return times.empty() ? NAN : percentile(times, fraction);
  };
  printFigure("cards answer 2 KB to frame, median", figure(rows[0].times, 0.5), "ms", Goal::atMost(kSmallGoalMs),
              rows[0].baseline, "MarkdownBlocks::parse alone");
  printFigure("cards answer 100 KB to frame, median", figure(rows[1].times, 0.5), "ms", Goal::atMost(kLargeGoalMs),
              rows[1].baseline, "MarkdownBlocks::parse alone");
  printFigure("cards key to frame while streaming, median", figure(streaming, 0.5), "ms", Goal::atMost(kKeyGoalMs),
              figure(alone, 0.5), "same, no stream");
  printFigure("cards key to frame while streaming, p95", figure(streaming, 0.95), "ms", Goal::atMost(kKeyGoalMs),
              figure(alone, 0.95), "same, no stream");
  delete card.root;  // and its adapter with it
  return 0;
}
