// The vocabulary of the tool server: what a tool is (ToolSpec), what it returns
// (MCPContent), and how it fails (MCPToolError).
#pragma once

#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

#include "core/base/json_value.h"

namespace zorvane {

struct ToolSpec {
  struct Param {
    std::string name;  // a leading "?" marks an optional parameter; it isn't part of the name
    std::string type;  // "string", "integer", "number", "boolean" or "array"
    std::string description;
  };
  std::string name;
  std::string description;
  std::vector<Param> params;

  // The form a tool takes in tools/list: name, description and a JSON-schema inputSchema
  // whose `required` lists the parameters without "?", in order.
  JSONValue json() const;
};

struct MCPContent {
  struct Text {
    std::string text;
  };
  struct Image {
    std::string base64;
    std::string mimeType;
  };
  std::variant<Text, Image> value;

  static MCPContent text(std::string text) { return {Text{std::move(text)}}; }
  static MCPContent image(std::string base64, std::string mimeType) {
    return {Image{std::move(base64), std::move(mimeType)}};
  }
  JSONValue json() const;
};

// A tool failure the agent is meant to read: its message tells it what to do next.
class MCPToolError : public std::runtime_error {
 public:
  explicit MCPToolError(const std::string& message) : std::runtime_error(message) {}
  const char* message() const { return what(); }
};

}  // namespace zorvane
