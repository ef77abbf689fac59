// The JSON form of ScheduleSpec and ScheduleTrigger. Kept apart from the grammar: this
// file is about reading untrusted store contents safely.
//
// The decoder reads back every value the encoder can write, including ones the grammar
// never produces (an hour of 24, an interval of 0): a value made in code must never make
// the whole store file unreadable. `next` treats such values as never due.
#include <climits>
#include <cmath>
#include <initializer_list>

#include "core/hub/schedule.h"
#include "core/registry/store_coding.h"

namespace zorvane {

static constexpr std::string_view kInvalidKeyCount = "Invalid number of keys found, expected one.";

static constexpr std::string_view kDailyKey = "daily";
static constexpr std::string_view kEveryKey = "every";
static constexpr std::string_view kOnceKey = "once";
static constexpr std::string_view kNewFileKey = "newFile";
static constexpr std::string_view kAppOpensKey = "appOpens";
static constexpr std::string_view kPageChangesKey = "pageChanges";

static JSONValue coded(std::string_view caseKey, JSONValue payload) {
  JSONValue value = JSONValue::object();
  value[std::string(caseKey)] = std::move(payload);
  return value;
}

// The one case key present among `keys`; other keys don't count. Its value must be an
// object.
static Expected<std::string_view> findCase(const JSONValue& value, std::string_view what,
                                           std::initializer_list<std::string_view> keys) {
  if (!value.is_object()) {
    return Failure{std::string(what) + ": expected an object, found " + value.type_name()};
  }
  std::string_view found;
  int count = 0;
  for (std::string_view key : keys) {
    if (subscript(value, key) == nullptr) continue;
    found = key;
    ++count;
  }
  if (count != 1) return Failure{std::string(kInvalidKeyCount)};
  const JSONValue& payload = *subscript(value, found);
  if (!payload.is_object()) {
    return Failure{std::string(found) + ": expected an object, found " + payload.type_name()};
  }
  return found;
}

// "daily." + "hour: missing"
static Failure inCase(std::string_view caseKey, const std::string& error) {
  return Failure{std::string(caseKey) + "." + error};
}

// A whole number within [minimum, maximum], named in the failure.
static Expected<int64_t> boundedInteger(const StoreCoding::FieldReader& reader,
                                        std::string_view caseKey, std::string_view key,
                                        int64_t minimum, int64_t maximum) {
  Expected<int64_t> number = reader.integer(key);
  if (!number) return inCase(caseKey, number.error());
  if (*number < minimum || *number > maximum) {
    return inCase(caseKey, std::string(key) + ": expected " + std::to_string(minimum) + " to " +
                               std::to_string(maximum));
  }
  return *number;
}

static Expected<std::string> stringField(const StoreCoding::FieldReader& reader,
                                         std::string_view caseKey, std::string_view key) {
  Expected<std::string> text = reader.string(key);
  if (!text) return inCase(caseKey, text.error());
  return std::move(*text);
}

// ---- ScheduleSpec ------------------------------------------------------------------

JSONValue ScheduleSpec::encode() const {
  if (const auto* every = std::get_if<Every>(&payload_)) {
    return coded(kEveryKey, {{"minutes", every->minutes}});
  }
  if (const auto* once = std::get_if<Once>(&payload_)) {
    return coded(kOnceKey, {{"_0", formatISO8601(once->date)}});
  }
  const auto& daily = std::get<Daily>(payload_);
  JSONValue weekdays = JSONValue::array();
  for (int day : daily.weekdays) weekdays.push_back(day);
  return coded(kDailyKey, {{"hour", daily.hour}, {"minute", daily.minute}, {"weekdays", weekdays}});
}

// Any whole numbers that fit an int: a set without a real weekday is a value the
// model allows (it is never due), and the file must read back whatever was written.
static Expected<std::set<int>> decodeWeekdays(const StoreCoding::FieldReader& reader) {
  Expected<const JSONValue*> field = reader.field("weekdays");
  if (!field) return inCase(kDailyKey, field.error());
  const JSONValue& array = **field;
  if (!array.is_array()) {
    return inCase(kDailyKey,
                  std::string("weekdays: expected an array, found ") + array.type_name());
  }
  std::set<int> days;
  for (const JSONValue& element : array) {
    bool whole =
        element.is_number_integer() ||
        (element.is_number_float() && std::trunc(element.get<double>()) == element.get<double>());
    double number = whole ? element.get<double>() : 0;
    if (!whole || number < INT_MIN || number > INT_MAX) {
      return inCase(kDailyKey, "weekdays: expected whole numbers");
    }
    days.insert(static_cast<int>(number));
  }
  return days;
}

Expected<ScheduleSpec> ScheduleSpec::decode(const JSONValue& value) {
  Expected<std::string_view> caseKey = findCase(value, "spec", {kDailyKey, kEveryKey, kOnceKey});
  if (!caseKey) return Failure{caseKey.error()};
  StoreCoding::FieldReader reader(*subscript(value, *caseKey));

  if (*caseKey == kEveryKey) {
    Expected<int64_t> minutes = reader.integer("minutes");
    if (!minutes) return inCase(kEveryKey, minutes.error());
    return every(*minutes);
  }
  if (*caseKey == kOnceKey) {
    Expected<SystemTime> date = reader.date("_0");
    if (!date) return inCase(kOnceKey, date.error());
    return once(*date);
  }
  // Like the weekdays, an hour or minute out of the clock's range is read as written: it
  // is a daily rule that is never due.
  Expected<int64_t> hour = boundedInteger(reader, kDailyKey, "hour", INT_MIN, INT_MAX);
  if (!hour) return Failure{hour.error()};
  Expected<int64_t> minute = boundedInteger(reader, kDailyKey, "minute", INT_MIN, INT_MAX);
  if (!minute) return Failure{minute.error()};
  Expected<std::set<int>> weekdays = decodeWeekdays(reader);
  if (!weekdays) return Failure{weekdays.error()};
  return daily(static_cast<int>(*hour), static_cast<int>(*minute), std::move(*weekdays));
}

// ---- ScheduleTrigger ---------------------------------------------------------------

JSONValue ScheduleTrigger::encode() const {
  if (const auto* newFile = std::get_if<NewFile>(&payload_)) {
    return coded(kNewFileKey, {{"folder", newFile->folder}, {"glob", newFile->glob}});
  }
  if (const auto* appOpens = std::get_if<AppOpens>(&payload_)) {
    return coded(kAppOpensKey, {{"app", appOpens->app}});
  }
  const auto& page = std::get<PageChanges>(payload_);
  return coded(kPageChangesKey, {{"url", page.url}, {"minutes", page.minutes}});
}

Expected<ScheduleTrigger> ScheduleTrigger::decode(const JSONValue& value) {
  Expected<std::string_view> caseKey =
      findCase(value, "trigger", {kNewFileKey, kAppOpensKey, kPageChangesKey});
  if (!caseKey) return Failure{caseKey.error()};
  StoreCoding::FieldReader reader(*subscript(value, *caseKey));

  if (*caseKey == kNewFileKey) {
    Expected<std::string> folder = stringField(reader, kNewFileKey, "folder");
    if (!folder) return Failure{folder.error()};
    Expected<std::string> glob = stringField(reader, kNewFileKey, "glob");
    if (!glob) return Failure{glob.error()};
    return newFile(std::move(*folder), std::move(*glob));
  }
  if (*caseKey == kAppOpensKey) {
    Expected<std::string> app = stringField(reader, kAppOpensKey, "app");
    if (!app) return Failure{app.error()};
    return appOpens(std::move(*app));
  }
  Expected<std::string> url = stringField(reader, kPageChangesKey, "url");
  if (!url) return Failure{url.error()};
  Expected<int64_t> minutes = reader.integer("minutes");
  if (!minutes) return inCase(kPageChangesKey, minutes.error());
  return pageChanges(std::move(*url), *minutes);
}

}  // namespace zorvane
