#include "core/base/uuid.h"

#include <gtest/gtest.h>

#include <regex>
#include <set>

namespace zorvane {

// New identifiers are distinct version-4 UUIDs whose text, in either case, parses back.
TEST(UUID, NewIdentifiersAreRandomVersionFourInCanonicalText) {
  const std::regex shape("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
  std::set<std::string> seen;
  for (int i = 0; i < 500; ++i) {
    UUID id;
    std::string text = id.uuidString();
    ASSERT_TRUE(std::regex_match(text, shape)) << text;
    std::string lower = id.lowercased();
    EXPECT_TRUE(std::regex_match(lower, std::regex("[0-9a-f-]{36}"))) << lower;
    EXPECT_EQ(UUID::parse(text), id);
    EXPECT_EQ(UUID::parse(lower), id);
    seen.insert(text);
  }
  EXPECT_EQ(seen.size(), 500u) << "random identifiers repeated";
}

// Parsing takes exactly the hyphenated 36-character form, in any mix of case.
TEST(UUID, ParseAcceptsOnlyTheHyphenatedForm) {
  auto mixed = UUID::parse("e621E1F8-c36c-495A-93fc-0C247A3E6E5F");
  ASSERT_TRUE(mixed.has_value());
  EXPECT_EQ(mixed->uuidString(), "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
  EXPECT_EQ(mixed->bytes()[0], 0xE6);

  const std::string_view bad[] = {
      "E621E1F8-C36C-495A-93FC-0C247A3E6E5",  "E621E1F8-C36C-495A-93FC-0C247A3E6E5F0",
      "E621E1F8C36C-495A-93FC-0C247A3E6E5F-", "E621E1F8-C36C-495A-93FC-0C247A3E6E5G",
      "E621E1F8C36C495A93FC0C247A3E6E5F",     {"E621E1F8-C36C-495A-93FC-0C247A3E6E5\0", 36}};
  for (std::string_view text : bad) {
    SCOPED_TRACE(text);
    EXPECT_FALSE(UUID::parse(text).has_value());
  }
}

}  // namespace zorvane
