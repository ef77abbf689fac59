#include "core/registry/store_writer.h"

#include <exception>
#include <system_error>

#include "core/base/log.h"
#include "core/base/store_file.h"

namespace zorvane {

StoreWriter::StoreWriter(std::string path) : path_(std::move(path)) {}

StoreWriter::~StoreWriter() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  changed_.notify_all();
  if (thread_.joinable()) thread_.join();
}

void StoreWriter::save(std::function<std::string()> encode) {
  std::unique_lock lock(mutex_);
  if (!thread_.joinable()) {
    try {
      thread_ = std::thread([this] { run(); });
    } catch (const std::system_error&) {
      // No thread to be had: write here rather than lose the save.
      ++handedOver_;
      lock.unlock();
      write(encode);
      lock.lock();
      ++finished_;
      changed_.notify_all();
      return;
    }
  }
  pending_ = std::move(encode);
  ++handedOver_;
  changed_.notify_all();
}

void StoreWriter::flush() {
  std::unique_lock lock(mutex_);
  uint64_t target = handedOver_;
  changed_.wait(lock, [&] { return finished_ >= target; });
}

void StoreWriter::run() {
  std::unique_lock lock(mutex_);
  for (;;) {
    changed_.wait(lock, [&] { return pending_ || stopping_; });
    if (!pending_) return;  // stopping, and nothing left to write
    std::function<std::string()> encode = std::move(pending_);
    pending_ = nullptr;
    // Every save handed over up to now is settled by this write: the newer content
    // replaces whatever the skipped ones would have written.
    uint64_t covered = handedOver_;
    lock.unlock();
    write(encode);
    lock.lock();
    finished_ = covered;
    changed_.notify_all();
  }
}

void StoreWriter::write(const std::function<std::string()>& encode) const {
  try {
    Expected<void> saved = StoreFile::save(path_, encode());
    if (!saved) Log::info("store " + path_ + ": couldn't save (" + saved.error() + "); the records stay in memory");
  } catch (const std::exception& error) {
    Log::info("store " + path_ + ": couldn't save (" + error.what() + "); the records stay in memory");
  }
}

}  // namespace zorvane
