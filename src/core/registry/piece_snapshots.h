// PieceSnapshots: the file of the pieces that were alive when the application last quit,
// "live-pieces.json" in the data folder, from which the next launch offers them back.
//
// The file is a JSON array of PieceSnapshot objects, pretty-printed with sorted keys (the
// keys inside `target` too), dates UTC with whole seconds and read back in that form only.
// PieceSnapshots keeps nothing in memory: `load` reads the file each time, `save`
// replaces it whole.
//
// `load` is all or nothing: a missing file gives no pieces, and so does a file with one
// snapshot that doesn't decode; such a file, like one that can't be read, is moved aside
// to "live-pieces.json.corrupt" and logged, so the next save can't overwrite it.
//
// `save` writes on the calling thread and returns when the file is on disk, because it
// runs once, as the application quits with every piece still alive, and nothing may be
// left pending after it. bench/stores_bench measured it with 20 pieces (about 7 KB):
// under a millisecond of processor time, 11-17 ms by the clock, 1.1-1.6 times a bare
// write of the same bytes with its fsync, so almost all of it is the disk's flushes. A
// failed save is logged and otherwise silent.
//
// No lock: PieceSnapshots belongs to the main thread.
#pragma once

#include <string>
#include <vector>

#include "core/base/expected.h"
#include "core/base/iso8601.h"
#include "core/base/json_value.h"
#include "core/base/uuid.h"
#include "core/targets/target.h"

namespace zorvane {

// One piece as it stood at the last quit.
struct PieceSnapshot {
  Target target;
  UUID sessionID;
  std::string displayName;  // shown while it is restored
  SystemTime savedAt;

  [[nodiscard]] JSONValue encode() const;
  // Fails on a missing required key or a key of the wrong type, naming the key
  // ("target: browserTab.url: missing"). Unknown keys are ignored.
  [[nodiscard]] static Expected<PieceSnapshot> decode(const JSONValue& value);

  friend bool operator==(const PieceSnapshot&, const PieceSnapshot&) = default;
};

class PieceSnapshots {
 public:
  // `url` is a file path.
  explicit PieceSnapshots(std::string url) : url_(std::move(url)) {}

  // "live-pieces.json" in Paths::dataDirectory().
  [[nodiscard]] static std::string defaultURL();

  [[nodiscard]] const std::string& url() const { return url_; }

  // The snapshots in the file, in its order; empty on any failure.
  [[nodiscard]] std::vector<PieceSnapshot> load() const;

  // Replaces the whole file, atomically and under the store's lock.
  void save(const std::vector<PieceSnapshot>& snapshots) const;

  // The file's array as snapshots, all or nothing ("item 1: savedAt: ...").
  [[nodiscard]] static Expected<std::vector<PieceSnapshot>> decode(const JSONValue& array);
  // The file's text: pretty-printed, keys sorted.
  [[nodiscard]] static std::string encode(const std::vector<PieceSnapshot>& snapshots);

 private:
  std::string url_;
};

}  // namespace zorvane
