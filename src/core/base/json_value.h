// JSONValue: any JSON value. Every agent message, tool input and store record passes
// through this type.
//
// It is nlohmann::json with a few total helpers: parsing never throws (a line that is
// not JSON gives nothing), lookups of a key or a string give nothing instead of throwing
// on the wrong kind of value, and the two encodings the system uses are named:
// compact single-line text for the wire and the scope file, and pretty text with
// sorted keys for the stores that ask for it. Objects are unordered: code must never
// rely on the order of keys in a line.
#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace zorvane {

// std::map keys keep the object's keys sorted, which gives the pretty encoding its
// sorted keys for free.
using JSONValue = nlohmann::json;
using JSONObject = JSONValue::object_t;

// Parses one JSON text. Absent on any syntax error, invalid UTF-8 or trailing garbage.
[[nodiscard]] std::optional<JSONValue> parseJSON(std::string_view text);

// The value under `key` of an object; null for a missing key and for every non-object.
[[nodiscard]] const JSONValue* subscript(const JSONValue& value, std::string_view key);

// The text of a string value; absent for every other kind.
[[nodiscard]] std::optional<std::string> stringValue(const JSONValue& value);
[[nodiscard]] std::optional<std::string> stringValue(const JSONValue* value);

// The boolean of a bool value; absent for every other kind.
[[nodiscard]] std::optional<bool> boolValue(const JSONValue* value);

// The object under `key` if it is one, else an empty object.
[[nodiscard]] JSONValue objectOrEmpty(const JSONValue* value);

// One line of compact JSON, without a trailing line feed. Invalid UTF-8 inside strings
// is replaced by U+FFFD rather than failing.
[[nodiscard]] std::string encodeCompact(const JSONValue& value);

// Indented JSON with object keys in ascending order, for the human-readable stores.
[[nodiscard]] std::string encodePretty(const JSONValue& value);

}  // namespace zorvane
