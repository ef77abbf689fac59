// StoreWriter: writes one store file on a thread of its own, so that a store used on the
// main thread never waits for the disk there.
//
// Why: a crash-safe save ends in two flushes to disk (the file, then its folder).
// bench/stores_bench measured a save of "sessions.json" at its cap (200 records, about
// 530 KB) at 11-25 ms and of "activity.json" at its cap (500 events, 150 KB) at 11-21 ms
// over several runs, mostly those flushes: more than a frame of 8 ms. So the caller keeps its records in
// memory and hands over a function that encodes a copy of them, which costs it about
// 0.1-0.2 ms; the writer runs the function and saves the bytes with StoreFile::save
// (temporary file, rename, under the store's lock).
//
// Guarantees:
//   - saves reach the disk in the order they were handed over; when several are waiting,
//     only the newest is written, since each one replaces the whole file anyway;
//   - `flush()` returns once every save handed over before it is written (or has failed);
//   - the destructor writes what is still waiting, then stops the thread;
//   - a failed save is logged with the file and the reason; the next save tries again
//     with the whole content, and the caller's memory is never touched.
// `save` and `flush` may be called from any thread. The thread starts with the first
// save. A child made by fork() must not use a writer made before the fork.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace zorvane {

class StoreWriter {
 public:
  explicit StoreWriter(std::string path);
  ~StoreWriter();
  StoreWriter(const StoreWriter&) = delete;
  StoreWriter& operator=(const StoreWriter&) = delete;

  // Queues the next content of the file; `encode` runs on the writer's thread and must
  // own everything it reads.
  void save(std::function<std::string()> encode);

  // Blocks until every save handed over so far has been written or has failed.
  void flush();

  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  void run();
  void write(const std::function<std::string()>& encode) const;

  const std::string path_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::function<std::string()> pending_;  // the newest save not yet taken
  uint64_t handedOver_ = 0;  // saves handed over so far
  uint64_t finished_ = 0;    // saves written, skipped as outdated or failed
  bool stopping_ = false;
  std::thread thread_;
};

}  // namespace zorvane
