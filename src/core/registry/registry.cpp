#include "core/registry/registry.h"

#include <algorithm>

namespace zorvane {

Registry::BondResult Registry::bond(const Target& target) {
  std::string key = target.targetKey();
  std::lock_guard guard(lock_);
  for (const auto& [pieceID, entry] : entries_) {
    if (entry.status == Status::live && entry.target.targetKey() == key) return {entry, false};
  }
  std::erase_if(entries_, [](const auto& item) { return item.second.status == Status::parked; });
  Entry entry{UUID(), UUID(), target};
  entries_.emplace(entry.pieceID, entry);
  return {std::move(entry), true};
}

std::optional<Registry::Entry> Registry::entry(const UUID& pieceID) const {
  std::lock_guard guard(lock_);
  auto found = entries_.find(pieceID);
  if (found == entries_.end()) return std::nullopt;
  return found->second;
}

std::vector<Registry::Entry> Registry::live() const {
  std::lock_guard guard(lock_);
  std::vector<Entry> entries;
  for (const auto& [pieceID, entry] : entries_) {
    if (entry.status == Status::live) entries.push_back(entry);
  }
  return entries;
}

void Registry::update(const UUID& pieceID, const std::function<void(Entry&)>& change) {
  std::lock_guard guard(lock_);
  auto found = entries_.find(pieceID);
  if (found == entries_.end()) return;
  Entry copy = found->second;
  change(copy);
  copy.pieceID = found->second.pieceID;
  copy.sessionID = found->second.sessionID;
  if (found->second.status == Status::parked) copy.status = Status::parked;
  found->second = std::move(copy);
}

void Registry::park(const UUID& pieceID) {
  update(pieceID, [](Entry& entry) { entry.status = Status::parked; });
}

void Registry::markRan(const UUID& pieceID) {
  update(pieceID, [](Entry& entry) { entry.hasRun = true; });
}

void Registry::rename(const UUID& pieceID, const Target& target) {
  update(pieceID, [&](Entry& entry) { entry.target = target; });
}

void Registry::addTentacle(const UUID& pieceID, const Target& target) {
  update(pieceID, [&](Entry& entry) {
    if (std::find(entry.tentacles.begin(), entry.tentacles.end(), target) != entry.tentacles.end()) return;
    entry.tentacles.push_back(target);
  });
}

}  // namespace zorvane
