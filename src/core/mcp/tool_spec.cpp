#include "core/mcp/tool_spec.h"

namespace zorvane {

JSONValue ToolSpec::json() const {
  JSONValue properties = JSONValue::object();
  JSONValue required = JSONValue::array();
  for (const Param& param : params) {
    bool optional = param.name.starts_with('?');
    std::string name = optional ? param.name.substr(1) : param.name;
    properties[name] = {{"type", param.type}, {"description", param.description}};
    if (!optional) required.push_back(name);
  }
  return {{"name", name},
          {"description", description},
          {"inputSchema", {{"type", "object"}, {"properties", properties}, {"required", required}}}};
}

JSONValue MCPContent::json() const {
  if (auto text = std::get_if<Text>(&value)) return {{"type", "text"}, {"text", text->text}};
  const auto& image = std::get<Image>(value);
  return {{"type", "image"}, {"data", image.base64}, {"mimeType", image.mimeType}};
}

}  // namespace zorvane
