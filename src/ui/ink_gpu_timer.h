// InkGpuTimer: GPU time of draw calls through GL timer queries, read back without ever
// waiting for the GPU.
//
// `begin()`/`end()` bracket the work of one frame; `poll()` returns the durations of
// earlier frames whose results have arrived, oldest first. A few queries are kept in a
// ring: when all are still pending, a frame goes untimed rather than stalling.
// Available on desktop GL 3.3+ (or ARB_timer_query) and on GLES with
// EXT_disjoint_timer_query; elsewhere `isAvailable()` is false and callers time the CPU
// side instead.
//
// Must be used with one context current, the one it was made in; `release()` deletes
// its queries (call it with that context current).
#pragma once

#include <array>
#include <vector>

namespace zorvane {

class InkGpuTimer {
 public:
  // Checks the current context's version and extensions.
  InkGpuTimer();

  bool isAvailable() const { return available_; }
  void begin();
  void end();
  // Milliseconds of the frames finished since the last poll, appended to `out`.
  void poll(std::vector<double>& out);
  void release();

 private:
  static constexpr int kRing = 4;
  bool available_ = false;
  bool created_ = false;
  bool running_ = false;
  std::array<unsigned, kRing> queries_{};
  int next_ = 0;     // the slot the next begin() uses
  int oldest_ = 0;   // the oldest pending slot
  int inUse_ = 0;    // pending slots
};

}  // namespace zorvane
