#include "core/learn/learned_skill.h"

#include "core/registry/store_coding.h"

namespace zorvane {

JSONValue LearnedSkill::encode() const {
  JSONValue object = {{"name", name}, {"slug", slug},       {"bundleID", bundleID},
                      {"app", app},   {"purpose", purpose}, {"created", formatISO8601(created)}};
  if (runs) object["runs"] = *runs;
  if (failures) object["failures"] = *failures;
  if (fixes) object["fixes"] = *fixes;
  if (lastFixed) object["lastFixed"] = formatISO8601(*lastFixed);
  return object;
}

static bool isPresent(const JSONValue& object, std::string_view key) {
  const JSONValue* value = subscript(object, key);
  return value != nullptr && !value->is_null();
}

static Expected<std::optional<int64_t>> optionalCount(const StoreCoding::FieldReader& reader,
                                                      const JSONValue& object,
                                                      std::string_view key) {
  if (!isPresent(object, key)) return std::optional<int64_t>();
  auto count = reader.integer(key);
  if (!count) return Failure{count.error()};
  return std::optional<int64_t>(*count);
}

Expected<LearnedSkill> LearnedSkill::decode(const JSONValue& value) {
  if (auto object = StoreCoding::expectObject(value); !object) return Failure{object.error()};
  StoreCoding::FieldReader reader(value);
  auto name = reader.string("name");
  if (!name) return Failure{name.error()};
  auto slug = reader.string("slug");
  if (!slug) return Failure{slug.error()};
  auto bundleID = reader.string("bundleID");
  if (!bundleID) return Failure{bundleID.error()};
  auto app = reader.string("app");
  if (!app) return Failure{app.error()};
  auto purpose = reader.string("purpose");
  if (!purpose) return Failure{purpose.error()};
  auto created = reader.date("created");
  if (!created) return Failure{created.error()};
  auto runs = optionalCount(reader, value, "runs");
  if (!runs) return Failure{runs.error()};
  auto failures = optionalCount(reader, value, "failures");
  if (!failures) return Failure{failures.error()};
  auto fixes = optionalCount(reader, value, "fixes");
  if (!fixes) return Failure{fixes.error()};
  std::optional<SystemTime> lastFixed;
  if (isPresent(value, "lastFixed")) {
    auto date = reader.date("lastFixed");
    if (!date) return Failure{date.error()};
    lastFixed = *date;
  }
  return LearnedSkill{std::move(*name),
                      std::move(*slug),
                      std::move(*bundleID),
                      std::move(*app),
                      std::move(*purpose),
                      *created,
                      *runs,
                      *failures,
                      *fixes,
                      lastFixed};
}

}  // namespace zorvane
