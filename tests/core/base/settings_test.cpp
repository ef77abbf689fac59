#include "core/base/settings.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "core/base/file_io.h"
#include "support/test_support.h"

namespace zorvane {
namespace {

using testing::TempDir;

JSONValue fileObject(const std::string& path) { return parseJSON(testing::readAll(path)).value_or(JSONValue()); }

// Values of both kinds survive a new reader; the file is one object of those keys
// (folders made on the first save); keys of another kind or unknown to us are kept.
TEST(Settings, RoundTripKeepsEveryKey) {
  testing::TempHome home;
  TempDir dir;
  std::string path = dir.file("config/zorvane/settings.json");
  Settings settings(path);
  EXPECT_FALSE(settings.boolValue(SettingsKey::onboarded));

  ASSERT_TRUE(settings.setBool(SettingsKey::onboarded, true));
  ASSERT_TRUE(settings.setBool(SettingsKey::keepAwake, false));
  ASSERT_TRUE(settings.setString(SettingsKey::selectedAgent, "codex"));
  ASSERT_TRUE(settings.setString(SettingsKey::model("claude"), "opus"));
  ASSERT_TRUE(settings.setString(SettingsKey::hubChatSession, "gone soon"));
  ASSERT_TRUE(settings.remove(SettingsKey::hubChatSession));

  Settings again(path);
  EXPECT_EQ(again.boolValue(SettingsKey::onboarded), true);
  EXPECT_EQ(again.boolValue(SettingsKey::keepAwake), false);
  EXPECT_EQ(again.stringValue(SettingsKey::selectedAgent), "codex");
  EXPECT_EQ(again.stringValue("model.claude"), "opus");
  EXPECT_FALSE(again.contains(SettingsKey::hubChatSession));
  EXPECT_FALSE(again.boolValue(SettingsKey::selectedAgent)) << "a string is no bool";
  EXPECT_EQ(fileObject(path),
            JSONValue::parse(R"({"keepAwake":false,"model.claude":"opus","onboarded":true,"selectedAgent":"codex"})"));

  // The default place is the XDG config folder.
  ASSERT_TRUE(Settings().setBool(SettingsKey::readAloud, false));
  EXPECT_EQ(Settings(home.path() + "/.config/zorvane/settings.json").boolValue(SettingsKey::readAloud), false);

  // A newer version's key and a value of an unexpected kind stay as they are.
  std::string other = dir.write("other.json", R"({"future":{"a":[1,2]},"readAloud":"yes"})");
  Settings mixed(other);
  EXPECT_FALSE(mixed.boolValue(SettingsKey::readAloud));
  ASSERT_TRUE(mixed.setBool(SettingsKey::phoneAccess, true));
  EXPECT_EQ(fileObject(other), JSONValue::parse(R"({"future":{"a":[1,2]},"readAloud":"yes","phoneAccess":true})"));
}

// Two owners of one file (two processes) don't undo each other's keys.
TEST(Settings, ChangesKeepWhatAnotherWriterSaved) {
  TempDir dir;
  std::string path = dir.file("settings.json");
  Settings first(path), second(path);
  ASSERT_TRUE(first.setBool(SettingsKey::onboarded, true));
  ASSERT_TRUE(second.setString(SettingsKey::hubChatAgent, "pi"));
  ASSERT_TRUE(first.setBool(SettingsKey::reopenWhenDone, true));
  EXPECT_EQ(fileObject(path),
            JSONValue::parse(R"({"hubChatAgent":"pi","onboarded":true,"reopenWhenDone":true})"));
}

// A file that isn't a JSON object is kept aside whole, never overwritten; a save that
// can't be written fails with the file's name and keeps the value in memory.
TEST(Settings, CorruptOrUnwritableFileLosesNothing) {
  TempDir dir;
  for (std::string bytes : {std::string("{\"onboarded\": tru"), std::string("[true]")}) {
    SCOPED_TRACE(bytes);
    std::string path = dir.write("settings.json", bytes);
    Settings settings(path);
    EXPECT_FALSE(settings.contains(SettingsKey::onboarded));
    EXPECT_EQ(testing::readAll(path + ".corrupt"), bytes);
    ASSERT_TRUE(settings.setBool(SettingsKey::onboarded, true));
    EXPECT_EQ(fileObject(path), JSONValue::parse(R"({"onboarded":true})"));
    EXPECT_EQ(testing::readAll(path + ".corrupt"), bytes) << "the save left the kept file alone";
    std::filesystem::remove(path + ".corrupt");
  }

  // Corrupted between two changes: the kept copy and this object's keys both survive.
  std::string path = dir.file("settings.json");
  Settings settings(path);
  ASSERT_TRUE(settings.setString(SettingsKey::selectedAgent, "claude"));
  dir.write("settings.json", "garbage");
  ASSERT_TRUE(settings.setBool(SettingsKey::readAloud, false));
  EXPECT_EQ(testing::readAll(path + ".corrupt"), "garbage");
  EXPECT_EQ(fileObject(path), JSONValue::parse(R"({"onboarded":true,"readAloud":false,"selectedAgent":"claude"})"));

  std::string blocked = dir.write("plain-file", "x") + "/settings.json";
  Settings unwritable(blocked);
  auto saved = unwritable.setBool(SettingsKey::keepAwake, true);
  ASSERT_FALSE(saved);
  EXPECT_NE(saved.error().find("settings " + blocked + ": "), std::string::npos) << saved.error();
  EXPECT_EQ(unwritable.boolValue(SettingsKey::keepAwake), true);
}

}  // namespace
}  // namespace zorvane
