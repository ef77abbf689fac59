#include "core/registry/store_coding.h"


#include <cmath>
#include <limits>

#include "core/base/store_file.h"

namespace zorvane::StoreCoding {

std::optional<SystemTime> parseDate(std::string_view text) {
  // "YYYY-MM-DDTHH:MM:SSZ" is exactly 20 characters; with that length and a final "Z"
  // there is no room for a fraction or an offset.
  if (text.size() != 20 || text.back() != 'Z') return std::nullopt;
  return parseISO8601(text);
}

static Failure failure(std::string_view key, std::string_view why) {
  std::string text(key);
  text += ": ";
  text += why;
  return Failure{std::move(text)};
}

static Failure typeFailure(std::string_view key, std::string_view expected, const JSONValue& value) {
  std::string why = "expected ";
  why += expected;
  why += ", found ";
  why += value.type_name();
  return failure(key, why);
}

Expected<const JSONValue*> FieldReader::field(std::string_view key) const {
  const JSONValue* value = subscript(object_, key);
  if (value == nullptr) return failure(key, "missing");
  return value;
}

Expected<std::string> FieldReader::string(std::string_view key) const {
  Expected<const JSONValue*> value = field(key);
  if (!value) return Failure{value.error()};
  if (!(*value)->is_string()) return typeFailure(key, "a string", **value);
  return (*value)->get<std::string>();
}

Expected<std::optional<std::string>> FieldReader::optionalString(std::string_view key) const {
  const JSONValue* value = subscript(object_, key);
  if (value == nullptr || value->is_null()) return std::optional<std::string>();
  if (!value->is_string()) return typeFailure(key, "a string", *value);
  return std::optional<std::string>(value->get<std::string>());
}

Expected<UUID> FieldReader::uuid(std::string_view key) const {
  Expected<std::string> text = string(key);
  if (!text) return Failure{text.error()};
  std::optional<UUID> parsed = UUID::parse(*text);
  if (!parsed) return failure(key, "not a UUID");
  return *parsed;
}

Expected<SystemTime> FieldReader::date(std::string_view key) const {
  Expected<std::string> text = string(key);
  if (!text) return Failure{text.error()};
  std::optional<SystemTime> parsed = parseDate(*text);
  if (!parsed) return failure(key, "expected a date like 2026-05-01T09:30:00Z");
  return *parsed;
}

Expected<int64_t> FieldReader::integer(std::string_view key) const {
  Expected<const JSONValue*> found = field(key);
  if (!found) return Failure{found.error()};
  const JSONValue& value = **found;
  if (!value.is_number()) return typeFailure(key, "a number", value);
  static constexpr std::string_view kRange = "expected a whole number that fits in 64 bits";
  if (value.is_number_unsigned()) {
    auto number = value.get<uint64_t>();
    if (number > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) return failure(key, kRange);
    return static_cast<int64_t>(number);
  }
  if (value.is_number_integer()) return value.get<int64_t>();
  // 2^63 is the first double above the range; -2^63 itself fits.
  auto number = value.get<double>();
  if (!std::isfinite(number) || std::trunc(number) != number || number >= 0x1p63 || number < -0x1p63) {
    return failure(key, kRange);
  }
  return static_cast<int64_t>(number);
}

Expected<std::optional<bool>> FieldReader::optionalBool(std::string_view key) const {
  const JSONValue* value = subscript(object_, key);
  if (value == nullptr || value->is_null()) return std::optional<bool>();
  if (!value->is_boolean()) return typeFailure(key, "true or false", *value);
  return std::optional<bool>(value->get<bool>());
}

Expected<void> expectObject(const JSONValue& value) {
  if (value.is_object()) return ok();
  return Failure{std::string("expected an object, found ") + value.type_name()};
}

void loadRecords(const std::string& path, const std::function<Expected<void>(const JSONValue&)>& decode) {
  StoreFile::load(path, decode);
}

}  // namespace zorvane::StoreCoding
