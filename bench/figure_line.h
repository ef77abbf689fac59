// Figure lines: besides its own table, every benchmark prints each headline figure once
// more as one tab-separated line, which scripts/bench.sh gathers into its summary:
//
//   FIGURE <TAB> name <TAB> measured <TAB> unit <TAB> goal <TAB> baseline <TAB> baseline's name [<TAB> why]
//   NOT-RUN <TAB> why
//
// `measured` and `baseline` are numbers in `unit`, or "-" when not measured; `goal` is
// "<= N" or ">= N" in the same unit, or "-" for a figure that only reports; `why`, when
// present, says why the figure or its baseline wasn't measured. NOT-RUN says why the
// program measured nothing at all (no display, a missing application, ...).
// Names are unique across the benchmarks: "<program> <figure>".
//
//   printFigure("markdown parse, answer", 412.5, "MB/s", Goal::atLeast(100), 9100, "memchr scan");
//
// Plain C++ (no Google Benchmark), so the whole-process benchmarks use it too.
#pragma once

#include <cmath>
#include <cstdio>
#include <string>

namespace zorvane {

struct Goal {
  std::string text = "-";  // "<= 16", ">= 100" or "-"

  static Goal atMost(double value) { return {"<= " + number(value)}; }
  static Goal atLeast(double value) { return {">= " + number(value)}; }
  static Goal none() { return {}; }

  // Shortest text that keeps the value: 16, 0.3, 0.05.
  static std::string number(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.6g", value);
    return text;
  }
};

// A measured value of NAN, or a baseline of NAN, prints "-": not measured.
inline void printFigure(const std::string& name, double measured, const std::string& unit, const Goal& goal,
                        double baseline = NAN, const std::string& baselineName = "-", const std::string& why = "") {
  auto field = [](double value) { return std::isnan(value) ? std::string("-") : Goal::number(value); };
  std::printf("FIGURE\t%s\t%s\t%s\t%s\t%s\t%s%s%s\n", name.c_str(), field(measured).c_str(), unit.c_str(),
              goal.text.c_str(), field(baseline).c_str(), baselineName.empty() ? "-" : baselineName.c_str(),
              why.empty() ? "" : "\t", why.c_str());
  std::fflush(stdout);
}

inline void printNotRun(const std::string& why) {
  std::printf("NOT-RUN\t%s\n", why.c_str());
  std::fflush(stdout);
}

}  // namespace zorvane
