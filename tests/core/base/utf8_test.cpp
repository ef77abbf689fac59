#include "core/base/utf8.h"

#include <gtest/gtest.h>

namespace zorvane {

static const std::string R = "\xEF\xBF\xBD";  // U+FFFD

// Each maximal ill-formed subpart becomes one U+FFFD; well-formed text is untouched.
TEST(UTF8, RepairReplacesEachInvalidSequence) {
  struct Case {
    std::string input, repaired;
  };
  const Case cases[] = {
      {"plain ascii", "plain ascii"},
      {"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"},
      {"\xF4\x8F\xBF\xBF", "\xF4\x8F\xBF\xBF"},      // U+10FFFF, the largest value
      {"\xC0\xAF", R + R},                           // overlong "/"
      {"\xED\xA0\x80", R + R + R},                   // surrogate U+D800
      {"\xF4\x90\x80\x80", R + R + R + R},           // U+110000
      {"\x80\xBF\xFF", R + R + R},                   // stray continuation bytes, 0xFF
      {"a\xE2\x82", "a" + R},                        // truncated at the end
      {"\xE2\x82\xE2\x82\xAC", R + "\xE2\x82\xAC"},  // a cut sequence then a whole one
      {std::string("a\xF1\x80\x80\xE1\x80\xC2") + "b\x80" + "c\x80\xBF" + "d",
       "a" + R + R + R + "b" + R + "c" + R + R + "d"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::PrintToString(c.input));
    EXPECT_EQ(repairUTF8(c.input), c.repaired);
    EXPECT_EQ(isValidUTF8(c.input), c.input == c.repaired);
    EXPECT_TRUE(isValidUTF8(c.repaired));
    // Counting and cutting use the units the repair replaces, from either end.
    size_t length = utf8Length(c.input);
    EXPECT_EQ(length, utf8Length(c.repaired));
    for (size_t n = 0; n <= length; ++n) {
      EXPECT_EQ(utf8Prefix(c.input, n) + utf8Suffix(c.input, length - n), c.input) << n;
      EXPECT_EQ(repairUTF8(utf8Prefix(c.input, n)), utf8Prefix(c.repaired, n)) << n;
    }
  }
}

// Counts are in scalar values and cuts never split a sequence; trimming removes ASCII
// white space and line ends at both ends only.
TEST(UTF8, CountsCutsAndTrimsWholeScalarValues) {
  const std::string head = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80";  // "aé€😀": 1 to 4 bytes
  const std::string text = head + "e\xCC\x81";  // "e" and a combining acute accent
  EXPECT_EQ(utf8Length(text), 6u);
  EXPECT_EQ(utf8Prefix(text, 5), head + "e");
  EXPECT_EQ(utf8Suffix(text, 1), "\xCC\x81");
  EXPECT_EQ(utf8Prefix(text, 0), "");
  EXPECT_EQ(utf8Suffix(text, 99), text);
  EXPECT_EQ(trimmed(" \t\r\n a b \f\v\n"), "a b");
  EXPECT_EQ(trimmed("\xC2\xA0x\xC2\xA0"), "\xC2\xA0x\xC2\xA0");  // no-break space is not ASCII
  EXPECT_EQ(trimmed(" \n\t "), "");
}

// Text to scalar values and back, whatever the text holds.
TEST(UTF8, CodePointsRoundTrip) {
  std::string text = "a\xC3\xA9\xE2\x9C\x93\xF0\x9F\x98\x80";  // "aé✓😀"
  EXPECT_EQ(codePoints(text), (std::vector<char32_t>{0x61, 0xE9, 0x2713, 0x1F600}));
  std::string back;
  for (char32_t point : codePoints(text)) back += encodeUTF8(point);
  EXPECT_EQ(back, text);
  EXPECT_EQ(codePoints("a\xFF"), (std::vector<char32_t>{0x61, 0xFFFD}));
  EXPECT_EQ(encodeUTF8(0xD800), R);
  EXPECT_EQ(encodeUTF8(0x110000), R);
}

}  // namespace zorvane
