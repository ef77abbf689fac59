// Benchmark of the JSON stores at their caps: "sessions.json" with 200 records (prompts of
// 300 and answers of 2000 characters), "activity.json" with 500 events, and
// "live-pieces.json" with 20 pieces. Measured in the same run, as baselines:
//
//   plain write     write(2) of the same bytes to a new file, nothing flushed;
//   flushed write   the same plus fsync: what the disk itself asks of any crash-safe save.
//
// Figures (real time, milliseconds):
//   load            the store's constructor (or PieceSnapshots::load) on the full file;
//   encode          the whole file's text from the records;
//   save here       encode and StoreFile::save on the calling thread: what one save
//                   would cost the main thread if it were made there;
//   caller's cost   upsert / add as the main thread sees it (the save runs on the store's
//                   writer thread): median, 99th percentile and worst single call.
//
// At the end a summary prints each save beside the baselines, and whether what the main
// thread spends in a call fits in one frame of 8 ms, judged by the thread's processor
// time at the 99th percentile: on a busy machine the wall clock's worst calls mostly
// measure the scheduler (both are printed). This program reports; it never fails.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "core/base/store_file.h"
#include "core/hub/activity.h"
#include "core/registry/piece_snapshots.h"
#include "core/registry/session_store.h"
#include "figure_line.h"

namespace zorvane {
namespace {

constexpr double kFrameMs = 8.0;

// One folder for the whole run, removed at the end.
class BenchFolder {
 public:
  BenchFolder() {
    const char* tmp = getenv("TMPDIR");
    std::string pattern = std::string(tmp != nullptr && tmp[0] == '/' ? tmp : "/tmp") + "/zorvane-bench-XXXXXX";
    if (mkdtemp(pattern.data()) != nullptr) path_ = pattern;
  }
  ~BenchFolder() {
    std::error_code ignored;
    if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
  }
  std::string file(const std::string& name) const { return path_ + "/" + name; }
  bool ok() const { return !path_.empty(); }

 private:
  std::string path_;
};

BenchFolder& folder() {
  static BenchFolder instance;
  return instance;
}

std::string text(size_t length, char seed) {
  std::string result;
  const std::string words = "the quick brown fox jumps over a lazy dog — déjà vu ";
  while (result.size() < length) result += words;
  result.resize(length);
  result[0] = seed;
  return result;
}

SessionRecord sessionRecord(int index) {
  SessionRecord record;
  Target target = Target::window(1000 + index, 5000 + index, "org.gnome.TextEditor", "Text Editor",
                                 "Notes " + std::to_string(index));
  record.targetKey = target.targetKey();
  record.looseKey = target.looseKey();
  record.displayName = target.displayName();
  record.lastPrompt = text(300, 'P');
  record.lastAnswer = text(2000, 'A');
  record.updatedAt = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
  record.turns = index + 1;
  record.agent = "claude";
  record.externalID = UUID().lowercased();
  return record;
}

const std::vector<SessionRecord>& sessionRecords() {
  static const std::vector<SessionRecord> records = [] {
    std::vector<SessionRecord> made;
    for (int i = 0; i < static_cast<int>(SessionStore::kCapacity); ++i) made.push_back(sessionRecord(i));
    return made;
  }();
  return records;
}

const std::vector<ActivityEvent>& activityEvents() {
  static const std::vector<ActivityEvent> events = [] {
    std::vector<ActivityEvent> made;
    for (size_t i = 0; i < ActivityStore::kCapacity; ++i) {
      made.emplace_back(ActivityEvent::Kind::approval, "Schedule · Morning digest " + std::to_string(i),
                        "Allowed: " + text(140, 'S'), i % 2 == 0);
    }
    return made;
  }();
  return events;
}

std::vector<PieceSnapshot> pieceSnapshots() {
  std::vector<PieceSnapshot> snapshots;
  for (int i = 0; i < 20; ++i) {
    Target target = Target::browserTab(BrowserApp::chromium, 70 + i,
                                       *URL::parse("https://docs.example/page/" + std::to_string(i)),
                                       "Meeting notes " + std::to_string(i));
    snapshots.push_back({target, UUID(), target.displayName(),
                         std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now())});
  }
  return snapshots;
}

// Writes a store file through the store's own encoder, once per run.
const std::string& sessionFile() {
  static const std::string path = [] {
    std::string file = folder().file("sessions.json");
    (void)StoreFile::save(file, SessionStore::encode(sessionRecords()));
    return file;
  }();
  return path;
}

const std::string& activityFile() {
  static const std::string path = [] {
    std::string file = folder().file("activity.json");
    (void)StoreFile::save(file, ActivityStore::encode(activityEvents()));
    return file;
  }();
  return path;
}

// A new file each time: truncating the old one would make ext4 push its blocks out at
// close, which is no part of a plain write.
void writePlain(const std::string& path, const std::string& bytes, bool flush) {
  ::unlink(path.c_str());
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (fd < 0) return;
  std::string_view rest = bytes;
  while (!rest.empty()) {
    ssize_t count = ::write(fd, rest.data(), rest.size());
    if (count <= 0) break;
    rest.remove_prefix(static_cast<size_t>(count));
  }
  if (flush) ::fsync(fd);
  ::close(fd);
}

// ---- baselines ----

void baselineWrite(benchmark::State& state, const std::string& bytes, bool flush) {
  std::string path = folder().file(flush ? "flushed.json" : "plain.json");
  for (auto _ : state) writePlain(path, bytes, flush);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes.size()));
  state.counters["KB"] = static_cast<double>(bytes.size()) / 1024.0;
}

void BM_Sessions_PlainWrite(benchmark::State& state) {
  baselineWrite(state, SessionStore::encode(sessionRecords()), false);
}
void BM_Sessions_FlushedWrite(benchmark::State& state) {
  baselineWrite(state, SessionStore::encode(sessionRecords()), true);
}
void BM_Activity_PlainWrite(benchmark::State& state) {
  baselineWrite(state, ActivityStore::encode(activityEvents()), false);
}
void BM_Activity_FlushedWrite(benchmark::State& state) {
  baselineWrite(state, ActivityStore::encode(activityEvents()), true);
}
void BM_Snapshots_PlainWrite(benchmark::State& state) {
  baselineWrite(state, PieceSnapshots::encode(pieceSnapshots()), false);
}
void BM_Snapshots_FlushedWrite(benchmark::State& state) {
  baselineWrite(state, PieceSnapshots::encode(pieceSnapshots()), true);
}

// ---- sessions ----

void BM_Sessions_Load(benchmark::State& state) {
  const std::string& path = sessionFile();
  for (auto _ : state) {
    SessionStore store(path);
    if (store.records().size() != SessionStore::kCapacity) state.SkipWithError("the file didn't load");
    benchmark::DoNotOptimize(store.records().data());
  }
}

void BM_Sessions_Encode(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(SessionStore::encode(sessionRecords()));
}

void BM_Sessions_SaveHere(benchmark::State& state) {
  std::string path = folder().file("sessions-here.json");
  for (auto _ : state) (void)StoreFile::save(path, SessionStore::encode(sessionRecords()));
}

// This thread's processor time in seconds: unlike the wall clock, it doesn't grow while
// the scheduler runs something else.
double threadSeconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// Times single calls of `call` by the wall clock (as the iteration time) and by this
// thread's processor time, and sets the 50th and 99th percentile and the worst of each,
// in ms. `between` runs untimed after each call.
template <typename Call, typename Between>
void timeCalls(benchmark::State& state, Call call, Between between) {
  std::vector<double> wall, processor;
  for (auto _ : state) {
    double cpuStart = threadSeconds();
    auto start = std::chrono::steady_clock::now();
    call();
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    processor.push_back((threadSeconds() - cpuStart) * 1000);
    state.SetIterationTime(seconds);
    wall.push_back(seconds * 1000);
    between();
  }
  for (auto* figures : {&wall, &processor}) {
    if (figures->empty()) return;
    std::sort(figures->begin(), figures->end());
  }
  auto percentile = [](const std::vector<double>& sorted, size_t percent) {
    return sorted[std::min(sorted.size() - 1, sorted.size() * percent / 100)];
  };
  state.counters["p50_ms"] = percentile(wall, 50);
  state.counters["p99_ms"] = percentile(wall, 99);
  state.counters["max_ms"] = wall.back();
  state.counters["cpu_p99_ms"] = percentile(processor, 99);
  state.counters["cpu_max_ms"] = processor.back();
}

// Measures upsert alone; between calls the writer is given time to finish, as it has
// between two turns of a conversation.
void BM_Sessions_UpsertCallersCost(benchmark::State& state) {
  SessionStore store(sessionFile());
  int next = 0;
  std::vector<SessionRecord> records;
  for (int i = 0; i < 400; ++i) records.push_back(sessionRecord(i));
  timeCalls(state, [&] { store.upsert(records[next++ % records.size()]); }, [&] { store.flush(); });
}

// ---- activity ----

void BM_Activity_Load(benchmark::State& state) {
  const std::string& path = activityFile();
  for (auto _ : state) {
    ActivityStore store(path);
    if (store.events().size() != ActivityStore::kCapacity) state.SkipWithError("the file didn't load");
    benchmark::DoNotOptimize(store.events().data());
  }
}

void BM_Activity_Encode(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(ActivityStore::encode(activityEvents()));
}

void BM_Activity_SaveHere(benchmark::State& state) {
  std::string path = folder().file("activity-here.json");
  for (auto _ : state) (void)StoreFile::save(path, ActivityStore::encode(activityEvents()));
}

void BM_Activity_AddCallersCost(benchmark::State& state) {
  ActivityStore store(activityFile());
  ActivityEvent event(ActivityEvent::Kind::message, "Notes → Report", text(140, 'M'));
  timeCalls(state, [&] { store.add(event); }, [&] { store.flush(); });
}

// ---- live pieces ----

void BM_Snapshots_Load(benchmark::State& state) {
  PieceSnapshots snapshots(folder().file("live-pieces.json"));
  snapshots.save(pieceSnapshots());
  for (auto _ : state) {
    auto loaded = snapshots.load();
    if (loaded.size() != 20) state.SkipWithError("the file didn't load");
    benchmark::DoNotOptimize(loaded.data());
  }
}

void BM_Snapshots_SaveHere(benchmark::State& state) {
  PieceSnapshots snapshots(folder().file("live-pieces-here.json"));
  std::vector<PieceSnapshot> pieces = pieceSnapshots();
  for (auto _ : state) snapshots.save(pieces);
}

BENCHMARK(BM_Sessions_PlainWrite)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Sessions_FlushedWrite)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Sessions_Load)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Sessions_Encode)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Sessions_SaveHere)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Sessions_UpsertCallersCost)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(200);
BENCHMARK(BM_Activity_PlainWrite)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Activity_FlushedWrite)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Activity_Load)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Activity_Encode)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Activity_SaveHere)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Activity_AddCallersCost)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(200);
BENCHMARK(BM_Snapshots_PlainWrite)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Snapshots_FlushedWrite)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Snapshots_Load)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Snapshots_SaveHere)->Unit(benchmark::kMillisecond)->UseRealTime();

// The console output as usual, and each benchmark's time per iteration (ms) and counters
// kept for the summary.
class Collector : public benchmark::ConsoleReporter {
 public:
  Collector() : ConsoleReporter(isatty(STDOUT_FILENO) ? OO_ColorTabular : OO_Tabular) {}

  struct Figure {
    double ms = 0;
    std::map<std::string, double> counters;
  };

  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.error_occurred || run.run_type != Run::RT_Iteration) continue;
      Figure figure;
      figure.ms = run.GetAdjustedRealTime();  // every benchmark here reports in ms
      for (const auto& [name, counter] : run.counters) figure.counters[name] = counter.value;
      figures_[run.run_name.function_name] = figure;
    }
  }

  const Figure* find(const std::string& name) const {
    auto found = figures_.find(name);
    return found == figures_.end() ? nullptr : &found->second;
  }

 private:
  std::map<std::string, Figure> figures_;
};

void printStore(const Collector& collector, const std::string& store, const std::string& change,
                const std::string& callersCost) {
  const auto* plain = collector.find("BM_" + store + "_PlainWrite");
  const auto* flushed = collector.find("BM_" + store + "_FlushedWrite");
  const auto* load = collector.find("BM_" + store + "_Load");
  const auto* here = collector.find("BM_" + store + "_SaveHere");
  const auto* caller = callersCost.empty() ? nullptr : collector.find(callersCost);
  if (plain == nullptr || flushed == nullptr || here == nullptr) {
    std::printf("%-10s not measured (filtered out or failed)\n", store.c_str());
    return;
  }
  std::printf("%-10s %6.0f KB  load %7.3f ms  save here %7.3f ms = %6.1fx plain write (%.3f ms), %4.2fx flushed write (%.3f ms)\n",
              store.c_str(), plain->counters.count("KB") ? plain->counters.at("KB") : 0.0, load ? load->ms : 0.0,
              here->ms, here->ms / plain->ms, plain->ms, here->ms / flushed->ms, flushed->ms);
  if (caller != nullptr) {
    auto counter = [&](const char* name) { return caller->counters.count(name) ? caller->counters.at(name) : 0.0; };
    double cpu = counter("cpu_p99_ms");
    std::printf("%-10s %s blocks the main thread %.3f ms median, %.3f ms p99, %.3f ms worst by the clock;\n", "",
                change.c_str(), counter("p50_ms"), counter("p99_ms"), counter("max_ms"));
    std::printf("%-10s it works %.3f ms p99, %.3f ms worst = %.3fx a frame of %.0f ms at p99: %s\n", "", cpu,
                counter("cpu_max_ms"), cpu / kFrameMs, kFrameMs, cpu <= kFrameMs ? "within a frame" : "OVER A FRAME");
    printFigure("stores " + store + " " + change + ", main thread CPU p99", cpu, "ms", Goal::atMost(kFrameMs),
                here->ms, "encode and save on the calling thread");
  } else {
    std::printf("%-10s %s on the calling thread: %.3f ms = %.3fx a frame of %.0f ms\n", "", change.c_str(), here->ms,
                here->ms / kFrameMs, kFrameMs);
    printFigure("stores " + store + " " + change + " on the calling thread", here->ms, "ms", Goal::none(),
                flushed->ms, "write and fsync of the same bytes");
  }
}

}  // namespace
}  // namespace zorvane

int main(int argc, char** argv) {
  using namespace zorvane;
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  if (!folder().ok()) {
    std::fprintf(stderr, "stores_bench: can't make a temporary folder\n");
    return 0;
  }
  Collector collector;
  benchmark::RunSpecifiedBenchmarks(&collector);
  std::printf("\nSummary (save here = encode + crash-safe save on the calling thread):\n");
  printStore(collector, "Sessions", "upsert", "BM_Sessions_UpsertCallersCost");
  printStore(collector, "Activity", "add", "BM_Activity_AddCallersCost");
  printStore(collector, "Snapshots", "save at quit", "");
  benchmark::Shutdown();
  return 0;
}
