// Settings: the user's few preferences, kept in Paths::settingsFile() as one JSON object
// (pretty, keys sorted), the same keys everywhere (SettingsKey below).
//
//   Settings settings;
//   bool keepAwake = settings.boolValue(SettingsKey::keepAwake).value_or(true);
//   if (auto saved = settings.setBool(SettingsKey::onboarded, true); !saved) Log::info(saved.error());
//
// Reads are from memory: the file is read when the object is made, by `reload`, and
// before each change. A change is made to what is on disk right then (so keys another
// process wrote meanwhile stay; to what this object held when the file had to be moved
// aside meanwhile), saved at once, atomically and under the file's lock
// (StoreFile), and kept in memory even when the save fails. Keys this program doesn't
// know, and known keys holding a value of another kind, are kept as they are: a getter
// of the wrong kind just finds nothing.
//
// A file that is there but isn't a JSON object is moved aside to "settings.json.corrupt"
// (the log says so) and the settings start empty, so no later save overwrites what may
// still be recovered. A missing file or folder is simply empty; the first save makes
// them. Not thread-safe: one owner, on the main queue.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "core/base/expected.h"
#include "core/base/json_value.h"

namespace zorvane {

namespace SettingsKey {
inline constexpr std::string_view onboarded = "onboarded";
inline constexpr std::string_view keepAwake = "keepAwake";
inline constexpr std::string_view reopenWhenDone = "reopenWhenDone";
inline constexpr std::string_view selectedAgent = "selectedAgent";
inline constexpr std::string_view readAloud = "readAloud";
inline constexpr std::string_view phoneAccess = "phoneAccess";
inline constexpr std::string_view hubChatSession = "hubChatSession";
inline constexpr std::string_view hubChatHasTurns = "hubChatHasTurns";
inline constexpr std::string_view hubChatExternal = "hubChatExternal";
inline constexpr std::string_view hubChatAgent = "hubChatAgent";
// The model chosen for an agent: "model." and the agent's id.
inline std::string model(std::string_view agentID) { return "model." + std::string(agentID); }
}  // namespace SettingsKey

class Settings {
 public:
  // The settings of Paths::settingsFile() as it is now (the environment is read here).
  Settings();
  explicit Settings(std::string path);

  const std::string& path() const { return path_; }

  // Nothing when the key is missing or holds another kind of value.
  [[nodiscard]] std::optional<bool> boolValue(std::string_view key) const;
  [[nodiscard]] std::optional<std::string> stringValue(std::string_view key) const;
  [[nodiscard]] bool contains(std::string_view key) const;

  // The failure names the file and the reason; the value is kept in memory regardless.
  [[nodiscard]] Expected<void> setBool(std::string_view key, bool value);
  [[nodiscard]] Expected<void> setString(std::string_view key, std::string value);
  [[nodiscard]] Expected<void> remove(std::string_view key);

  // Reads the file again.
  void reload();

 private:
  [[nodiscard]] Expected<void> change(std::string_view key, std::optional<JSONValue> value);

  std::string path_;
  JSONValue values_ = JSONValue::object();
};

}  // namespace zorvane
