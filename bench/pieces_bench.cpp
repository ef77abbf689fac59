// Benchmark of what the application's main thread spends on its pieces and on the peer
// socket's requests, with the desktop in memory (platform/fake), so the figures are the
// controllers' own cost:
//
//   one piece tick     one 1/60 s tick of one piece on a window target among 30 other
//                      windows: its anchor, the occlusion and rename checks every 0.1 s,
//                      and the layout of its panels (the baseline);
//   20 pieces frame    one frame of 20 such pieces: goal 1.5 ms;
//   route list / ask   the router answering `list` and delivering `ask` with 50 pieces
//                      on screen: goal 0.1 ms each.
//
// What the X server adds per anchor tick (a few round trips for one window) is measured
// against real windows by drop_resolver_bench. This program reports; it never fails.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <filesystem>

#include "app/peers/peer_router.h"
#include "app/pieces/piece_controller.h"
#include "core/base/run_loop.h"
#include "platform/fake/fake_application_services.h"
#include "figure_line.h"
#include "summary_reporter.h"

namespace zorvane {
namespace {

class IdleAgent final : public AgentTransport {
 public:
  bool isRunning() const override { return true; }
  std::optional<std::string> externalSessionID() const override { return std::nullopt; }
  Expected<void> start() override { return ok(); }
  void send(const std::string&) override {}
  void respond(const PermissionRequest&, bool) override {}
  void terminate() override {}
};

struct World {
  std::string folder = std::filesystem::temp_directory_path() / "zorvane-pieces-bench";
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
  PeerRouter::Pieces pieces;
  PeerRouter router{pieces, *activity, *clock, [](const PeerRequest&) { return true; }};

  explicit World(int count) {
    std::filesystem::create_directories(folder);
    // Thirty windows of other programs, some over the targets.
    for (uint32_t i = 0; i < 30; ++i)
      fakes.desktop.windows.windowList.push_back(
          {1000 + i, 50, 40.0 * i, 30.0 * i, 500, 400, 0, "Other " + std::to_string(i), true});
    for (int i = 0; i < count; ++i) {
      uint32_t id = 100 + i;
      fakes.desktop.windows.windowList.push_back(
          {id, 7, 60.0 * (i % 10), 80.0 * (i / 10), 640, 480, 0, "Doc " + std::to_string(i), true});
      Target target = Target::window(7, id, "org.example.Editor", "Editor", "Doc " + std::to_string(i));
      auto anchor = std::make_shared<WindowAnchor>(fakes.desktop.windows, id,
                                                   Rect{60.0 * (i % 10), 80.0 * (i / 10), 640, 480}, true);
      auto entry = registry.bond(target).entry;
      auto piece = PieceController::make(services, entry, std::nullopt, Resolved{target, anchor}, {0, 0},
                                         {AgentKind::claude(), "/usr/bin/claude"}, false, false);
      pieces[piece->pieceID()] = piece;
    }
  }
  ~World() {
    pieces.clear();
    std::filesystem::remove_all(folder);
  }
  void frame() {
    clock->advance(1.0 / 60);
    for (auto& [id, piece] : pieces) piece->tick();
  }
};

void BM_OnePieceTick(benchmark::State& state) {
  World world(1);
  for (auto _ : state) world.frame();
}
BENCHMARK(BM_OnePieceTick);

void BM_TwentyPiecesFrame(benchmark::State& state) {
  World world(20);
  for (auto _ : state) world.frame();
}
BENCHMARK(BM_TwentyPiecesFrame);

void BM_RouteList50(benchmark::State& state) {
  World world(50);
  PeerRequest request{PeerRequest::Op::list, PeerIdentity::hub(), std::nullopt, std::nullopt, std::nullopt};
  for (auto _ : state) world.router.route(request, [](const PeerResponse& r) { benchmark::DoNotOptimize(r); });
}
BENCHMARK(BM_RouteList50);

void BM_RouteAsk50(benchmark::State& state) {
  World world(50);
  PieceController& target = *world.pieces.begin()->second;
  target.ask("keep it busy");  // so that asks wait in its inbox instead of starting turns
  PeerRequest request{PeerRequest::Op::ask, PeerIdentity::hub(), "doc 17", "What is open?", std::nullopt};
  for (auto _ : state) world.router.route(request, [](const PeerResponse&) {});
}
BENCHMARK(BM_RouteAsk50);

}  // namespace
}  // namespace zorvane

int main(int argc, char** argv) {
  return zorvane::runWithSummary(argc, argv, [](const zorvane::SummaryReporter& r) {
    double one = r.of("BM_OnePieceTick") * 1e3, twenty = r.of("BM_TwentyPiecesFrame") * 1e3;
    double list = r.of("BM_RouteList50") * 1e3, ask = r.of("BM_RouteAsk50") * 1e3;
    printf("\nsummary\n");
    printf("  20 pieces, one frame   %.4f ms  (one piece %.4f ms, x%.1f)  goal 1.5 ms: %s\n", twenty, one,
           one > 0 ? twenty / one : 0, twenty <= 1.5 ? "met" : "missed");
    printf("  route list, 50 pieces  %.4f ms  goal 0.1 ms: %s\n", list, list <= 0.1 ? "met" : "missed");
    printf("  route ask, 50 pieces   %.4f ms  goal 0.1 ms: %s\n", ask, ask <= 0.1 ? "met" : "missed");
    auto measured = [](double ms) { return ms > 0 ? ms : NAN; };
    zorvane::printFigure("pieces 20 pieces, one frame", measured(twenty), "ms", zorvane::Goal::atMost(1.5),
                         measured(one), "one piece's tick");
    zorvane::printFigure("pieces route list, 50 pieces", measured(list), "ms", zorvane::Goal::atMost(0.1));
    zorvane::printFigure("pieces route ask, 50 pieces", measured(ask), "ms", zorvane::Goal::atMost(0.1));
  });
}
