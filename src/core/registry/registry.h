// Registry: the pieces of this run, in memory: which piece is bonded to which target,
// with which conversation, and whether it is still on screen.
//
// It is the one store that may be called from any thread: a single mutex guards the
// table and every operation copies in and out, so a caller never holds a reference into
// it. Operations on an unknown piece id do nothing and say nothing.
//
// A piece's entry is `live` while it is on screen and `parked` once it is retired; a
// parked entry never comes back and is dropped at the next bond that makes a new entry.
//
//   Registry registry;
//   auto [entry, isNew] = registry.bond(target);   // the live piece on target, or a new one
//   registry.markRan(entry.pieceID);
#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "core/base/uuid.h"
#include "core/targets/target.h"

namespace zorvane {

class Registry {
 public:
  enum class Status { live, parked };

  struct Entry {
    UUID pieceID;    // fixed: the piece in this run
    UUID sessionID;  // fixed: its conversation
    Target target;
    Status status = Status::live;
    bool hasRun = false;  // set after the piece's first turn
    // Free text about the piece; empty from creation, kept for whoever wants to show one.
    std::string summary;
    std::vector<Target> tentacles;  // further targets, no two equal

    friend bool operator==(const Entry&, const Entry&) = default;
  };

  struct BondResult {
    Entry entry;
    bool isNew = false;
  };

  // The live entry whose target has `target`'s targetKey, unchanged and with isNew
  // false. Otherwise every parked entry is dropped and a new live entry is made with
  // fresh piece and session ids; isNew is true.
  [[nodiscard]] BondResult bond(const Target& target);

  // A copy of the entry.
  [[nodiscard]] std::optional<Entry> entry(const UUID& pieceID) const;

  // Copies of all live entries, in no fixed order.
  [[nodiscard]] std::vector<Entry> live() const;

  // Runs `change` on a copy of the entry and stores the result. pieceID and sessionID
  // keep their values whatever `change` does, and a parked entry stays parked. `change`
  // runs under the registry's lock and must not call back into the registry.
  void update(const UUID& pieceID, const std::function<void(Entry&)>& change);

  void park(const UUID& pieceID);
  void markRan(const UUID& pieceID);
  void rename(const UUID& pieceID, const Target& target);
  // Appends, unless an equal target (every field) is already among the tentacles.
  void addTentacle(const UUID& pieceID, const Target& target);

 private:
  mutable std::mutex lock_;
  std::map<UUID, Entry> entries_;  // by pieceID
};

}  // namespace zorvane
