#include "core/mcp/control_scope.h"

#include <algorithm>
#include <cctype>
#include <charconv>

#include "core/base/file_io.h"

namespace zorvane {

ControlScope::ControlScope(const std::vector<Target>& targets, std::optional<UUID> piece)
    : pieceID(piece) {
  for (const Target& target : targets) {
    if (auto tab = std::get_if<Target::BrowserTab>(&target.payload())) {
      entries.push_back({target.displayName(), "browser tab", tab->windowID, std::string(rawValue(tab->app)),
                         tab->url.absoluteString()});
    } else if (auto window = std::get_if<Target::Window>(&target.payload())) {
      entries.push_back({target.displayName(), "app window", window->windowID, window->bundleID, std::nullopt});
    }
  }
}

std::string ControlScope::encoded() const {
  const ControlScope& scope = *this;
  // ordered_json keeps the keys in the order they are written here.
  nlohmann::ordered_json out;
  nlohmann::ordered_json list = nlohmann::ordered_json::array();
  for (const auto& e : scope.entries) {
    nlohmann::ordered_json item;
    item["name"] = e.name;
    item["kind"] = e.kind;
    item["windowID"] = e.windowID;
    item["bundleID"] = e.bundleID;
    if (e.url) item["url"] = *e.url;
    list.push_back(std::move(item));
  }
  out["entries"] = std::move(list);
  if (scope.pieceID) out["pieceID"] = scope.pieceID->uuidString();
  if (scope.allWindows) out["allWindows"] = *scope.allWindows;
  if (scope.gate) out["gate"] = *scope.gate;
  if (scope.workDir) out["workDir"] = *scope.workDir;
  return out.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

// Decodes the fields; the failure says which field and what was wrong with it.
static Expected<ControlScope> decodeFields(const JSONValue& value) {
  if (!value.is_object()) return Failure{"expected an object"};
  const JSONValue* list = subscript(value, "entries");
  if (list == nullptr || !list->is_array()) return Failure{"entries: expected an array"};
  ControlScope scope;
  for (const JSONValue& item : *list) {
    auto name = stringValue(subscript(item, "name"));
    auto kind = stringValue(subscript(item, "kind"));
    auto bundleID = stringValue(subscript(item, "bundleID"));
    const JSONValue* windowID = subscript(item, "windowID");
    if (!name || !kind || !bundleID) return Failure{"entry: name, kind and bundleID must be text"};
    if (windowID == nullptr || !windowID->is_number_unsigned() || windowID->get<uint64_t>() > UINT32_MAX) {
      return Failure{"entry: windowID must be a window number"};
    }
    const JSONValue* url = subscript(item, "url");
    if (url != nullptr && !url->is_string()) return Failure{"entry: url must be text"};
    scope.entries.push_back({*name, *kind, static_cast<uint32_t>(windowID->get<uint64_t>()), *bundleID,
                             stringValue(url)});
  }
  if (const JSONValue* piece = subscript(value, "pieceID")) {
    auto text = stringValue(piece);
    auto uuid = text ? UUID::parse(*text) : std::nullopt;
    if (!uuid) return Failure{"pieceID: expected a UUID"};
    scope.pieceID = uuid;
  }
  for (auto [key, field] : {std::pair{"allWindows", &scope.allWindows}, std::pair{"gate", &scope.gate}}) {
    if (const JSONValue* flag = subscript(value, key)) {
      if (!flag->is_boolean()) return Failure{std::string(key) + ": expected true or false"};
      *field = flag->get<bool>();
    }
  }
  if (const JSONValue* dir = subscript(value, "workDir")) {
    if (!dir->is_string()) return Failure{"workDir: expected text"};
    scope.workDir = dir->get<std::string>();
  }
  return scope;
}

Expected<ControlScope> ControlScope::decode(const JSONValue& value) {
  auto scope = decodeFields(value);
  if (!scope) return Failure{"scope: " + scope.error()};
  return scope;
}

Expected<ControlScope> ControlScope::read(const std::string& path) {
  auto bytes = readFile(path);
  if (!bytes) return Failure{"scope file " + path + ": " + bytes.error()};
  auto parsed = parseJSON(*bytes);
  if (!parsed) return Failure{"scope file " + path + ": not valid JSON"};
  auto scope = decodeFields(*parsed);
  if (!scope) return Failure{"scope file " + path + ": " + scope.error()};
  return scope;
}

ControlScope ControlScope::load(const std::string& path) {
  auto scope = read(path);
  if (!scope) return ControlScope();
  return std::move(*scope);
}

void ControlScope::save(const std::string& path) const {
  (void)writeFileAtomically(path, encoded(), 0600);
}

static std::string lowercased(std::string_view text) {
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return result;
}

std::optional<ControlScope::Entry> ControlScope::entry(const std::optional<std::string>& target) const {
  std::string_view text = target ? std::string_view(*target) : std::string_view();
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
  if (text.empty()) {
    if (entries.empty()) return std::nullopt;
    return entries.front();
  }
  std::string_view digits = text;
  if (digits.front() == '+') digits.remove_prefix(1);
  long long index = 0;
  auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), index);
  if (error == std::errc() && end == digits.data() + digits.size() && index >= 0 &&
      index < static_cast<long long>(entries.size())) {
    return entries[static_cast<size_t>(index)];
  }
  std::string needle = lowercased(text);
  for (const Entry& e : entries) {
    if (lowercased(e.name).find(needle) != std::string::npos ||
        lowercased(e.bundleID).find(needle) != std::string::npos) {
      return e;
    }
  }
  return std::nullopt;
}

std::string ControlScope::listing() const {
  if (entries.empty()) {
    return "No windows attached. Ask the user to attach one (drag a tentacle to it, or use + in the chat).";
  }
  std::string text;
  for (size_t i = 0; i < entries.size(); ++i) {
    const Entry& e = entries[i];
    if (i > 0) text += "\n";
    text += std::to_string(i) + ": " + e.name + " [" + e.kind + ", " + e.bundleID;
    if (e.url) text += ", " + *e.url;
    text += "]";
  }
  return text;
}

}  // namespace zorvane
