// Field readers shared by the JSON forms of the learning types (events, steps, elements,
// learned skills). Every failure reads "<key>: <why>"; an optional field that is missing
// or null is absent, present with another type it is a failure.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/base/expected.h"
#include "core/base/json_value.h"

namespace zorvane::LearnCoding {

inline Failure typeFailure(std::string_view key, std::string_view expected,
                           const JSONValue& found) {
  return Failure{std::string(key) + ": expected " + std::string(expected) + ", found " +
                 found.type_name()};
}

inline Expected<void> expectObject(const JSONValue& value) {
  if (value.is_object()) return ok();
  return Failure{std::string("expected an object, found ") + value.type_name()};
}

inline Expected<const JSONValue*> required(const JSONValue& object, std::string_view key) {
  const JSONValue* value = subscript(object, key);
  if (value == nullptr || value->is_null()) return Failure{std::string(key) + ": missing"};
  return value;
}

inline Expected<std::string> string(const JSONValue& object, std::string_view key) {
  auto value = required(object, key);
  if (!value) return Failure{value.error()};
  if (!(*value)->is_string()) return typeFailure(key, "text", **value);
  return (*value)->get<std::string>();
}

inline Expected<std::optional<std::string>> optionalString(const JSONValue& object,
                                                           std::string_view key) {
  const JSONValue* value = subscript(object, key);
  if (value == nullptr || value->is_null()) return std::optional<std::string>();
  if (!value->is_string()) return typeFailure(key, "text", *value);
  return std::optional<std::string>(value->get<std::string>());
}

inline Expected<double> number(const JSONValue& object, std::string_view key) {
  auto value = required(object, key);
  if (!value) return Failure{value.error()};
  if (!(*value)->is_number()) return typeFailure(key, "a number", **value);
  return (*value)->get<double>();
}

inline Expected<std::optional<double>> optionalNumber(const JSONValue& object,
                                                      std::string_view key) {
  const JSONValue* value = subscript(object, key);
  if (value == nullptr || value->is_null()) return std::optional<double>();
  if (!value->is_number()) return typeFailure(key, "a number", *value);
  return std::optional<double>(value->get<double>());
}

inline Expected<bool> boolean(const JSONValue& object, std::string_view key) {
  auto value = required(object, key);
  if (!value) return Failure{value.error()};
  if (!(*value)->is_boolean()) return typeFailure(key, "true or false", **value);
  return (*value)->get<bool>();
}

inline Expected<std::vector<std::string>> stringList(const JSONValue& object,
                                                     std::string_view key) {
  auto value = required(object, key);
  if (!value) return Failure{value.error()};
  if (!(*value)->is_array()) return typeFailure(key, "a list of text", **value);
  std::vector<std::string> texts;
  for (const JSONValue& item : **value) {
    if (!item.is_string()) return typeFailure(key, "a list of text", item);
    texts.push_back(item.get<std::string>());
  }
  return texts;
}

}  // namespace zorvane::LearnCoding
