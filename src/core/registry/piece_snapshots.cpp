#include "core/registry/piece_snapshots.h"

#include "core/base/log.h"
#include "core/base/paths.h"
#include "core/base/store_file.h"
#include "core/registry/store_coding.h"

namespace zorvane {

JSONValue PieceSnapshot::encode() const {
  JSONValue object = JSONValue::object();
  object["target"] = target.encode();
  object["sessionID"] = sessionID.uuidString();
  object["displayName"] = displayName;
  object["savedAt"] = formatISO8601(savedAt);
  return object;
}

Expected<PieceSnapshot> PieceSnapshot::decode(const JSONValue& value) {
  if (auto object = StoreCoding::expectObject(value); !object) return Failure{object.error()};
  StoreCoding::FieldReader reader(value);
  auto targetValue = reader.field("target");
  if (!targetValue) return Failure{targetValue.error()};
  auto target = Target::decode(**targetValue);
  if (!target) return Failure{"target: " + target.error()};
  auto sessionID = reader.uuid("sessionID");
  if (!sessionID) return Failure{sessionID.error()};
  auto displayName = reader.string("displayName");
  if (!displayName) return Failure{displayName.error()};
  auto savedAt = reader.date("savedAt");
  if (!savedAt) return Failure{savedAt.error()};
  return PieceSnapshot{std::move(*target), *sessionID, std::move(*displayName), *savedAt};
}

std::string PieceSnapshots::defaultURL() {
  return Paths::dataDirectory() + "/live-pieces.json";
}

std::vector<PieceSnapshot> PieceSnapshots::load() const {
  std::vector<PieceSnapshot> snapshots;
  StoreCoding::loadRecords(url_, [&](const JSONValue& array) -> Expected<void> {
    auto decoded = decode(array);
    if (!decoded) return Failure{decoded.error()};
    snapshots = std::move(*decoded);
    return ok();
  });
  return snapshots;
}

void PieceSnapshots::save(const std::vector<PieceSnapshot>& snapshots) const {
  Expected<void> saved = StoreFile::save(url_, encode(snapshots));
  if (!saved) Log::info("store " + url_ + ": couldn't save (" + saved.error() + ")");
}

Expected<std::vector<PieceSnapshot>> PieceSnapshots::decode(const JSONValue& array) {
  return StoreCoding::decodeArray<PieceSnapshot>(array, &PieceSnapshot::decode);
}

std::string PieceSnapshots::encode(const std::vector<PieceSnapshot>& snapshots) {
  JSONValue array = JSONValue::array();
  for (const PieceSnapshot& snapshot : snapshots) array.push_back(snapshot.encode());
  return encodePretty(array);
}

}  // namespace zorvane
