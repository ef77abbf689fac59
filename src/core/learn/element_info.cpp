#include "core/learn/element_info.h"

#include "core/learn/detail/learn_coding.h"

namespace zorvane {

static std::string roleWord(std::string_view role) {
  std::string word;
  word.reserve(role.size());
  for (size_t i = 0; i < role.size(); ++i) {
    if (role.substr(i).starts_with("AX")) {
      ++i;
      continue;
    }
    char c = role[i];
    word.push_back(c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c);
  }
  return word;
}

std::string ElementInfo::phrase() const {
  std::string text = label.empty() ? "the " + roleWord(role) : "“" + label + "” " + roleWord(role);
  for (const std::string& around : context) {
    if (around.empty()) continue;
    text += " in “" + around + "”";
    break;
  }
  return text;
}

JSONValue ElementInfo::encode() const {
  JSONValue object = {{"role", role}, {"label", label}, {"context", context}};
  if (value) object["value"] = *value;
  return object;
}

Expected<ElementInfo> ElementInfo::decode(const JSONValue& value) {
  if (auto object = LearnCoding::expectObject(value); !object) return Failure{object.error()};
  auto role = LearnCoding::string(value, "role");
  if (!role) return Failure{role.error()};
  auto label = LearnCoding::string(value, "label");
  if (!label) return Failure{label.error()};
  auto elementValue = LearnCoding::optionalString(value, "value");
  if (!elementValue) return Failure{elementValue.error()};
  auto context = LearnCoding::stringList(value, "context");
  if (!context) return Failure{context.error()};
  return ElementInfo{std::move(*role), std::move(*label), std::move(*elementValue),
                     std::move(*context)};
}

}  // namespace zorvane
