#include "core/hub/activity.h"

#include <array>
#include <chrono>

#include "core/base/paths.h"
#include "core/registry/store_coding.h"

namespace zorvane {

using Kind = ActivityEvent::Kind;

static constexpr std::array<Kind, 7> kKinds = {Kind::message,  Kind::reply, Kind::approval, Kind::schedule,
                                               Kind::skill,    Kind::piece, Kind::trigger};
static constexpr std::array<std::string_view, 7> kKindNames = {"message", "reply", "approval", "schedule",
                                                               "skill",   "piece", "trigger"};

template <>
std::span<const Kind> allCases<Kind>() {
  return kKinds;
}

template <>
std::optional<Kind> fromRawValue<Kind>(std::string_view rawValue) {
  for (size_t i = 0; i < kKinds.size(); ++i) {
    if (kKindNames[i] == rawValue) return kKinds[i];
  }
  return std::nullopt;
}

std::string_view rawValue(Kind kind) {
  return kKindNames[static_cast<size_t>(kind)];
}

ActivityEvent::ActivityEvent(Kind kind, std::string actor, std::string text, std::optional<bool> ok)
    : date(std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now())),
      kind(kind),
      actor(std::move(actor)),
      text(std::move(text)),
      ok(ok) {}

ActivityEvent::ActivityEvent(UUID id, SystemTime date, Kind kind, std::string actor, std::string text,
                             std::optional<bool> ok)
    : id(id), date(date), kind(kind), actor(std::move(actor)), text(std::move(text)), ok(ok) {}

JSONValue ActivityEvent::encode() const {
  JSONValue object = JSONValue::object();
  object["id"] = id.uuidString();
  object["date"] = formatISO8601(date);
  object["kind"] = std::string(rawValue(kind));
  object["actor"] = actor;
  object["text"] = text;
  if (ok) object["ok"] = *ok;
  return object;
}

Expected<ActivityEvent> ActivityEvent::decode(const JSONValue& value) {
  if (auto object = StoreCoding::expectObject(value); !object) return Failure{object.error()};
  StoreCoding::FieldReader reader(value);
  auto id = reader.uuid("id");
  if (!id) return Failure{id.error()};
  auto date = reader.date("date");
  if (!date) return Failure{date.error()};
  auto kindText = reader.string("kind");
  if (!kindText) return Failure{kindText.error()};
  std::optional<Kind> kind = fromRawValue<Kind>(*kindText);
  if (!kind) return Failure{"kind: unknown kind \"" + *kindText + "\""};
  auto actor = reader.string("actor");
  if (!actor) return Failure{actor.error()};
  auto text = reader.string("text");
  if (!text) return Failure{text.error()};
  auto ok = reader.optionalBool("ok");
  if (!ok) return Failure{ok.error()};
  return ActivityEvent(*id, *date, *kind, std::move(*actor), std::move(*text), *ok);
}

ActivityStore::ActivityStore(std::string url) : writer_(std::move(url)) {
  StoreCoding::loadRecords(writer_.path(), [&](const JSONValue& array) -> Expected<void> {
    auto decoded = decode(array);
    if (!decoded) return Failure{decoded.error()};
    events_ = std::move(*decoded);
    return ok();
  });
  // A longer file (edited by hand, or from another version) keeps its newest events.
  if (events_.size() > kCapacity) events_.erase(events_.begin() + kCapacity, events_.end());
}

std::string ActivityStore::defaultURL() {
  return Paths::dataDirectory() + "/activity.json";
}

void ActivityStore::add(ActivityEvent event) {
  events_.insert(events_.begin(), std::move(event));
  if (events_.size() > kCapacity) events_.erase(events_.begin() + kCapacity, events_.end());
  writer_.save([events = events_] { return encode(events); });
}

Expected<std::vector<ActivityEvent>> ActivityStore::decode(const JSONValue& array) {
  return StoreCoding::decodeArray<ActivityEvent>(array, &ActivityEvent::decode);
}

std::string ActivityStore::encode(const std::vector<ActivityEvent>& events) {
  JSONValue array = JSONValue::array();
  for (const ActivityEvent& event : events) array.push_back(event.encode());
  return encodeCompact(array);
}

}  // namespace zorvane
