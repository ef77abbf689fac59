#include "core/base/json_value.h"

namespace zorvane {

std::optional<JSONValue> parseJSON(std::string_view text) {
  JSONValue value = JSONValue::parse(text.begin(), text.end(), nullptr, /*allow_exceptions=*/false);
  if (value.is_discarded()) return std::nullopt;
  return value;
}

const JSONValue* subscript(const JSONValue& value, std::string_view key) {
  if (!value.is_object()) return nullptr;
  auto it = value.find(key);
  if (it == value.end()) return nullptr;
  return &*it;
}

std::optional<std::string> stringValue(const JSONValue& value) {
  if (!value.is_string()) return std::nullopt;
  return value.get<std::string>();
}

std::optional<std::string> stringValue(const JSONValue* value) {
  if (value == nullptr) return std::nullopt;
  return stringValue(*value);
}

std::optional<bool> boolValue(const JSONValue* value) {
  if (value == nullptr || !value->is_boolean()) return std::nullopt;
  return value->get<bool>();
}

JSONValue objectOrEmpty(const JSONValue* value) {
  if (value != nullptr && value->is_object()) return *value;
  return JSONValue::object();
}

std::string encodeCompact(const JSONValue& value) {
  return value.dump(-1, ' ', false, JSONValue::error_handler_t::replace);
}

std::string encodePretty(const JSONValue& value) {
  return value.dump(2, ' ', false, JSONValue::error_handler_t::replace);
}

}  // namespace zorvane
