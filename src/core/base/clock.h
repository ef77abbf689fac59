// Clock: the one source of time a controller reads, both kinds together:
//
//   now()          seconds on a monotonic line, for timers, intervals and time-outs;
//   wallNow()      the calendar time, for records, logs and what the user reads;
//   wallSeconds()  the same as seconds since 1970, as the goo's animations count.
//
// SystemClock reads the system's clocks. FakeClock moves only when a test says so, and
// then both kinds move together, so a controller that mixes them sees one consistent
// time. Controllers get a Clock by injection and never read the system's time
// themselves.
#pragma once

#include <atomic>
#include <chrono>

namespace zorvane {

using SystemTime = std::chrono::system_clock::time_point;

class Clock {
 public:
  virtual ~Clock() = default;
  virtual double now() const = 0;
  virtual SystemTime wallNow() const = 0;
  double wallSeconds() const {
    return std::chrono::duration<double>(wallNow().time_since_epoch()).count();
  }
};

class SystemClock final : public Clock {
 public:
  double now() const override {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
  }
  SystemTime wallNow() const override { return std::chrono::system_clock::now(); }
};

// Starts at monotonic 1000 s and at 2026-06-01 12:00:00 UTC. Thread-safe.
class FakeClock final : public Clock {
 public:
  double now() const override { return now_.load(); }
  SystemTime wallNow() const override {
    return SystemTime(std::chrono::duration_cast<SystemTime::duration>(
        std::chrono::duration<double>(kWallStart + now_.load() - kMonotonicStart)));
  }
  void advance(double seconds) { now_.store(now_.load() + seconds); }

 private:
  static constexpr double kMonotonicStart = 1000.0;
  static constexpr double kWallStart = 1780315200.0;  // 2026-06-01T12:00:00Z
  std::atomic<double> now_{kMonotonicStart};
};

}  // namespace zorvane
