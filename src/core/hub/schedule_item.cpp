#include "core/hub/schedule_item.h"

#include "core/registry/store_coding.h"

namespace zorvane {

static Failure prefixed(std::string_view prefix, const std::string& error) {
  return Failure{std::string(prefix) + error};
}

// An optional date: missing or null is absent.
static Expected<std::optional<SystemTime>> optionalDate(const StoreCoding::FieldReader& reader,
                                                        const JSONValue& object,
                                                        std::string_view key) {
  const JSONValue* value = subscript(object, key);
  if (value == nullptr || value->is_null()) return std::optional<SystemTime>();
  Expected<SystemTime> date = reader.date(key);
  if (!date) return Failure{date.error()};
  return std::optional<SystemTime>(*date);
}

static Expected<bool> requiredBool(const StoreCoding::FieldReader& reader, std::string_view key) {
  Expected<const JSONValue*> value = reader.field(key);
  if (!value) return Failure{value.error()};
  if (!(*value)->is_boolean()) {
    return Failure{std::string(key) + ": expected true or false, found " + (*value)->type_name()};
  }
  return (*value)->get<bool>();
}

// ---- ScheduleRun -------------------------------------------------------------------

JSONValue ScheduleRun::encode() const {
  JSONValue object = JSONValue::object();
  object["started"] = formatISO8601(started);
  if (finished) object["finished"] = formatISO8601(*finished);
  object["ok"] = ok;
  object["result"] = result;
  return object;
}

Expected<ScheduleRun> ScheduleRun::decode(const JSONValue& value) {
  if (auto object = StoreCoding::expectObject(value); !object) return Failure{object.error()};
  StoreCoding::FieldReader reader(value);
  auto started = reader.date("started");
  if (!started) return Failure{started.error()};
  auto finished = optionalDate(reader, value, "finished");
  if (!finished) return Failure{finished.error()};
  auto ok = requiredBool(reader, "ok");
  if (!ok) return Failure{ok.error()};
  auto result = reader.string("result");
  if (!result) return Failure{result.error()};
  return ScheduleRun{*started, *finished, *ok, std::move(*result)};
}

// ---- ScheduleItem ------------------------------------------------------------------

ScheduleItem::ScheduleItem(UUID id, std::string title, std::string prompt, ScheduleSpec spec,
                           bool enabled, bool trusted, SystemTime now, const Calendar& calendar)
    : id(id),
      title(std::move(title)),
      prompt(std::move(prompt)),
      spec(std::move(spec)),
      enabled(enabled),
      trusted(trusted),
      nextRun(this->spec.next(now, std::nullopt, calendar)) {}

std::string ScheduleItem::whenText(const Calendar& calendar) const {
  if (trigger) return trigger->text();
  return spec.text(calendar);
}

JSONValue ScheduleItem::encode() const {
  JSONValue object = JSONValue::object();
  object["id"] = id.uuidString();
  object["title"] = title;
  object["prompt"] = prompt;
  object["spec"] = spec.encode();
  object["enabled"] = enabled;
  object["trusted"] = trusted;
  if (lastRun) object["lastRun"] = formatISO8601(*lastRun);
  if (lastResult) object["lastResult"] = *lastResult;
  if (nextRun) object["nextRun"] = formatISO8601(*nextRun);
  if (history) {
    JSONValue runs = JSONValue::array();
    for (const ScheduleRun& run : *history) runs.push_back(run.encode());
    object["history"] = std::move(runs);
  }
  if (agent) object["agent"] = *agent;
  if (trigger) object["trigger"] = trigger->encode();
  if (cloudRoutineID) object["cloudRoutineID"] = *cloudRoutineID;
  return object;
}

static Expected<std::optional<std::vector<ScheduleRun>>> decodeHistory(const JSONValue& object) {
  const JSONValue* value = subscript(object, "history");
  if (value == nullptr || value->is_null()) return std::optional<std::vector<ScheduleRun>>();
  if (!value->is_array()) {
    return Failure{std::string("history: expected an array, found ") + value->type_name()};
  }
  std::vector<ScheduleRun> runs;
  for (const JSONValue& element : *value) {
    Expected<ScheduleRun> run = ScheduleRun::decode(element);
    if (!run) return prefixed("history[" + std::to_string(runs.size()) + "].", run.error());
    runs.push_back(std::move(*run));
  }
  return std::optional<std::vector<ScheduleRun>>(std::move(runs));
}

static Expected<std::optional<ScheduleTrigger>> decodeTrigger(const JSONValue& object) {
  const JSONValue* value = subscript(object, "trigger");
  if (value == nullptr || value->is_null()) return std::optional<ScheduleTrigger>();
  Expected<ScheduleTrigger> trigger = ScheduleTrigger::decode(*value);
  if (!trigger) return prefixed("trigger: ", trigger.error());
  return std::optional<ScheduleTrigger>(std::move(*trigger));
}

Expected<ScheduleItem> ScheduleItem::decode(const JSONValue& value) {
  if (auto object = StoreCoding::expectObject(value); !object) return Failure{object.error()};
  StoreCoding::FieldReader reader(value);
  auto id = reader.uuid("id");
  if (!id) return Failure{id.error()};
  auto title = reader.string("title");
  if (!title) return Failure{title.error()};
  auto prompt = reader.string("prompt");
  if (!prompt) return Failure{prompt.error()};
  auto specValue = reader.field("spec");
  if (!specValue) return Failure{specValue.error()};
  auto spec = ScheduleSpec::decode(**specValue);
  if (!spec) return prefixed("spec: ", spec.error());
  auto enabled = requiredBool(reader, "enabled");
  if (!enabled) return Failure{enabled.error()};
  auto trusted = requiredBool(reader, "trusted");
  if (!trusted) return Failure{trusted.error()};
  auto lastRun = optionalDate(reader, value, "lastRun");
  if (!lastRun) return Failure{lastRun.error()};
  auto lastResult = reader.optionalString("lastResult");
  if (!lastResult) return Failure{lastResult.error()};
  auto nextRun = optionalDate(reader, value, "nextRun");
  if (!nextRun) return Failure{nextRun.error()};
  auto history = decodeHistory(value);
  if (!history) return Failure{history.error()};
  auto agent = reader.optionalString("agent");
  if (!agent) return Failure{agent.error()};
  auto trigger = decodeTrigger(value);
  if (!trigger) return Failure{trigger.error()};
  auto cloudRoutineID = reader.optionalString("cloudRoutineID");
  if (!cloudRoutineID) return Failure{cloudRoutineID.error()};

  // The constructor's nextRun is replaced by the stored one; UTC keeps it from reading
  // the environment for a value that is thrown away.
  ScheduleItem item(*id, std::move(*title), std::move(*prompt), std::move(*spec), *enabled,
                    *trusted, SystemTime{}, Calendar::utc());
  item.lastRun = *lastRun;
  item.lastResult = std::move(*lastResult);
  item.nextRun = *nextRun;
  item.history = std::move(*history);
  item.agent = std::move(*agent);
  item.trigger = std::move(*trigger);
  item.cloudRoutineID = std::move(*cloudRoutineID);
  return item;
}

}  // namespace zorvane
