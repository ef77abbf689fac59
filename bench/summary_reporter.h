// SummaryReporter: prints Google Benchmark's usual table and keeps the wall-clock
// seconds per iteration of every run, so a benchmark can print its ratios afterwards.
#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

namespace zorvane {

class SummaryReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.error_occurred || run.run_type != Run::RT_Iteration || run.iterations == 0) continue;
      seconds[run.benchmark_name()] = run.real_accumulated_time / double(run.iterations);
    }
  }
  // Seconds per iteration by benchmark name; 0 for a name that didn't run.
  double of(const std::string& name) const {
    auto found = seconds.find(name);
    return found == seconds.end() ? 0.0 : found->second;
  }
  std::map<std::string, double> seconds;
};

// Runs the registered benchmarks with a SummaryReporter and hands it to `summarize`
// afterwards; 1 for unrecognised arguments, else 0.
template <typename Summarize>
int runWithSummary(int& argc, char** argv, Summarize summarize) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  SummaryReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  summarize(reporter);
  return 0;
}

}  // namespace zorvane
