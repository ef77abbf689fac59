// Throughput of the answer parsers, MarkdownBlocks::parse and parseCitations, on one
// megabyte of text each: a realistic answer (headings, paragraphs with citations, lists,
// tables, code, quotes) and the pathological inputs an agent or a broken stream can
// produce (a megabyte of "#", a fence never closed, "|" lines, unclosed citation markers,
// random bytes).
//
// Baseline, measured in the same run over the same bytes: a plain scan counting line
// feeds with memchr, the least any line-based parser has to do. The summary at the end
// gives each parser's MB/s, its ratio to that scan, and whether it reaches the goal of
// 100 MB/s. Google Benchmark's own flags apply (--benchmark_filter=..., ...).
// This program reports; it never fails a build.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "core/agent/citations.h"
#include "core/agent/markdown_blocks.h"
#include "figure_line.h"

namespace {

constexpr size_t kSize = 1 << 20;
constexpr double kGoalMBPerSecond = 100;

// Repeats `piece` to exactly kSize bytes.
std::string filled(const std::string& piece) {
  std::string text;
  text.reserve(kSize + piece.size());
  while (text.size() < kSize) text += piece;
  text.resize(kSize);
  return text;
}

std::string realisticAnswer() {
  std::string text;
  for (int section = 0; text.size() < kSize; ++section) {
    std::string n = std::to_string(section);
    text += "## Section " + n + "\n";
    text += "The invoice from ACME is due on **3 May** [[cite: invoice-" + n +
            ".pdf | page 2]], and the amount "
            "matches the order [[cite: orders.csv | row " +
            n + "]]. Nothing else stands out in the folder.\n";
    text += "A second line of the same paragraph, with `code` and a [link](https://example.com/" +
            n + ").\n\n";
    text +=
        "| Item | Qty | Amount |\n|------|----:|-------:|\n| Pens | 3 | 12.00 |\n| Paper | 1 | "
        "4.50 |\n\n";
    text += "- Pay by transfer\n  to the usual account\n- Keep the receipt [[cite: invoice-" + n +
            ".pdf]]\n";
    text += "1. Open the bank app\n2. Pay\n3. File the receipt\n";
    text += "> Late fees apply\n> after 30 days.\n\n---\n";
    text += "```sh\nmv invoice.pdf paid/invoice-" + n + ".pdf\nls paid\n```\n\n";
  }
  text.resize(kSize);
  return text;
}

std::string randomBytes() {
  std::string text(kSize, '\0');
  uint32_t state = 12345;
  for (char& c : text) {
    state = state * 1664525u + 1013904223u;
    c = static_cast<char>(state >> 24);
  }
  return text;
}

const std::map<std::string, std::string>& inputs() {
  static const std::map<std::string, std::string> all = {
      {"answer", realisticAnswer()},
      {"hashes", std::string(kSize, '#')},
      {"unclosed_fence", "```\n" + filled("let total = items.reduce(0, +) // sum\n")},
      {"bar_lines", filled("|\n")},
      {"table", "| a | b |\n|---|---|\n" + filled("| 1 | 2 |\n")},
      {"unclosed_cites", filled("[[cite: a ")},
      {"random_bytes", randomBytes()},
  };
  return all;
}

const std::string& input(const std::string& name) {
  return inputs().at(name);
}

void newlineScan(benchmark::State& state, const std::string& name) {
  const std::string& text = input(name);
  for (auto _ : state) {
    size_t lines = 0;
    const char* at = text.data();
    const char* end = text.data() + text.size();
    while (const void* found = std::memchr(at, '\n', static_cast<size_t>(end - at))) {
      ++lines;
      at = static_cast<const char*>(found) + 1;
    }
    benchmark::DoNotOptimize(lines);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

void markdownParse(benchmark::State& state, const std::string& name) {
  const std::string& text = input(name);
  for (auto _ : state) {
    std::vector<zorvane::MDBlock> blocks = zorvane::MarkdownBlocks::parse(text);
    benchmark::DoNotOptimize(blocks.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

void citationsParse(benchmark::State& state, const std::string& name) {
  const std::string& text = input(name);
  for (auto _ : state) {
    zorvane::ParsedCitations parsed = zorvane::parseCitations(text);
    benchmark::DoNotOptimize(parsed.segments.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

// Keeps the MB/s of every run besides printing it as usual.
class SummaryReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.error_occurred || run.run_type != Run::RT_Iteration) continue;
      auto rate = run.counters.find("bytes_per_second");
      if (rate != run.counters.end())
        megabytesPerSecond[run.benchmark_name()] = rate->second.value / 1e6;
    }
  }
  std::map<std::string, double> megabytesPerSecond;
};

void printSummary(const std::map<std::string, double>& rates) {
  std::printf(
      "\nMB/s on 1 MB inputs; ratio = parser / memchr scan for '\\n' over the same bytes; goal >= "
      "%.0f MB/s\n",
      kGoalMBPerSecond);
  std::printf("%-16s %14s %10s %10s %10s %7s  %s\n", "input", "baseline MB/s", "markdown", "ratio",
              "citations", "ratio", "goal");
  for (const auto& [name, text] : inputs()) {
    auto find = [&](const std::string& prefix) {
      auto found = rates.find(prefix + "/" + name);
      return found == rates.end() ? 0.0 : found->second;
    };
    double baseline = find("newline_scan"), markdown = find("MarkdownBlocks.parse"),
           citations = find("parseCitations");
    if (baseline == 0 && markdown == 0 && citations == 0) continue;  // filtered out
    auto ratio = [&](double rate) { return baseline > 0 ? rate / baseline : 0.0; };
    bool met = (markdown == 0 || markdown >= kGoalMBPerSecond) &&
               (citations == 0 || citations >= kGoalMBPerSecond);
    std::printf("%-16s %14.0f %10.0f %10.3f %10.0f %7.3f  %s\n", name.c_str(), baseline, markdown,
                ratio(markdown), citations, ratio(citations), met ? "met" : "MISSED");
  }
  for (const auto& [name, text] : inputs()) {
    auto find = [&](const std::string& prefix) {
      auto found = rates.find(prefix + "/" + name);
      return found == rates.end() ? NAN : found->second;
    };
    double baseline = find("newline_scan");
    if (auto markdown = find("MarkdownBlocks.parse"); !std::isnan(markdown))
      zorvane::printFigure("markdown MarkdownBlocks::parse, " + name, markdown, "MB/s",
                           zorvane::Goal::atLeast(kGoalMBPerSecond), baseline, "memchr scan for line feeds");
    if (auto citations = find("parseCitations"); !std::isnan(citations))
      zorvane::printFigure("markdown parseCitations, " + name, citations, "MB/s",
                           zorvane::Goal::atLeast(kGoalMBPerSecond), baseline, "memchr scan for line feeds");
  }
}

}  // namespace

int main(int argc, char** argv) {
  for (const auto& [name, text] : inputs()) {
    benchmark::RegisterBenchmark(("newline_scan/" + name).c_str(), newlineScan, name)
        ->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark(("MarkdownBlocks.parse/" + name).c_str(), markdownParse, name)
        ->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark(("parseCitations/" + name).c_str(), citationsParse, name)
        ->Unit(benchmark::kMicrosecond);
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  SummaryReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  printSummary(reporter.megabytesPerSecond);
  return 0;
}
