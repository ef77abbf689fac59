#include "core/registry/session_store.h"

#include <algorithm>
#include <chrono>

#include "core/base/paths.h"
#include "core/registry/store_coding.h"

namespace zorvane {

JSONValue SessionRecord::encode() const {
  JSONValue object = JSONValue::object();
  object["targetKey"] = targetKey;
  if (looseKey) object["looseKey"] = *looseKey;
  object["sessionID"] = sessionID.uuidString();
  object["displayName"] = displayName;
  object["lastPrompt"] = lastPrompt;
  object["lastAnswer"] = lastAnswer;
  object["updatedAt"] = formatISO8601(updatedAt);
  object["turns"] = turns;
  if (agent) object["agent"] = *agent;
  if (externalID) object["externalID"] = *externalID;
  return object;
}

Expected<SessionRecord> SessionRecord::decode(const JSONValue& value) {
  if (auto object = StoreCoding::expectObject(value); !object) return Failure{object.error()};
  StoreCoding::FieldReader reader(value);
  auto targetKey = reader.string("targetKey");
  if (!targetKey) return Failure{targetKey.error()};
  auto looseKey = reader.optionalString("looseKey");
  if (!looseKey) return Failure{looseKey.error()};
  auto sessionID = reader.uuid("sessionID");
  if (!sessionID) return Failure{sessionID.error()};
  auto displayName = reader.string("displayName");
  if (!displayName) return Failure{displayName.error()};
  auto lastPrompt = reader.string("lastPrompt");
  if (!lastPrompt) return Failure{lastPrompt.error()};
  auto lastAnswer = reader.string("lastAnswer");
  if (!lastAnswer) return Failure{lastAnswer.error()};
  auto updatedAt = reader.date("updatedAt");
  if (!updatedAt) return Failure{updatedAt.error()};
  auto turns = reader.integer("turns");
  if (!turns) return Failure{turns.error()};
  auto agent = reader.optionalString("agent");
  if (!agent) return Failure{agent.error()};
  auto externalID = reader.optionalString("externalID");
  if (!externalID) return Failure{externalID.error()};
  return SessionRecord{std::move(*targetKey), std::move(*looseKey),   *sessionID,
                       std::move(*displayName), std::move(*lastPrompt), std::move(*lastAnswer),
                       *updatedAt,              *turns,                 std::move(*agent),
                       std::move(*externalID)};
}

SessionStore::SessionStore(std::string url) : writer_(std::move(url)) {
  StoreCoding::loadRecords(writer_.path(), [&](const JSONValue& array) -> Expected<void> {
    auto decoded = decode(array);
    if (!decoded) return Failure{decoded.error()};
    records_ = std::move(*decoded);
    return ok();
  });
  // A longer file (edited by hand, or from another version) keeps its newest records.
  if (records_.size() > kCapacity) records_.resize(kCapacity);
}

std::string SessionStore::defaultURL() {
  return Paths::dataDirectory() + "/sessions.json";
}

std::optional<SessionRecord> SessionStore::previous(const Target& target) const {
  std::string key = target.targetKey();
  for (const SessionRecord& record : records_) {
    if (record.targetKey == key) return record;
  }
  std::optional<std::string> looseKey = target.looseKey();
  if (!looseKey) return std::nullopt;
  const SessionRecord* best = nullptr;
  for (const SessionRecord& record : records_) {
    if (record.looseKey != looseKey) continue;
    if (best == nullptr || record.updatedAt > best->updatedAt) best = &record;
  }
  if (best == nullptr) return std::nullopt;
  return *best;
}

void SessionStore::upsert(SessionRecord record) {
  // Kept as the file keeps it, so the records read after a restart equal these.
  record.updatedAt = std::chrono::floor<std::chrono::seconds>(record.updatedAt);
  std::erase_if(records_, [&](const SessionRecord& old) {
    return old.targetKey == record.targetKey || old.sessionID == record.sessionID;
  });
  records_.insert(records_.begin(), std::move(record));
  if (records_.size() > kCapacity) records_.resize(kCapacity);
  save();
}

void SessionStore::forget(const UUID& sessionID) {
  std::erase_if(records_, [&](const SessionRecord& old) { return old.sessionID == sessionID; });
  save();
}

Expected<std::vector<SessionRecord>> SessionStore::decode(const JSONValue& array) {
  return StoreCoding::decodeArray<SessionRecord>(array, &SessionRecord::decode);
}

std::string SessionStore::encode(const std::vector<SessionRecord>& records) {
  JSONValue array = JSONValue::array();
  for (const SessionRecord& record : records) array.push_back(record.encode());
  return encodePretty(array);
}

void SessionStore::save() {
  writer_.save([records = records_] { return encode(records); });
}

}  // namespace zorvane
