#include "core/base/line_buffer.h"

#include <gtest/gtest.h>

#include <vector>

namespace zorvane {
namespace {

std::vector<std::string> drain(LineBuffer& buffer) {
  std::vector<std::string> lines;
  while (auto line = buffer.takeLine()) lines.push_back(line->oversized ? "<oversized>" : line->text);
  return lines;
}

// Lines split across chunks are joined, several lines in one chunk come out in order,
// empty lines are kept (callers decide), and an unfinished tail waits.
TEST(LineBuffer, AssemblesLinesAcrossChunks) {
  LineBuffer buffer;
  buffer.append("{\"a\":");
  EXPECT_TRUE(drain(buffer).empty());
  buffer.append("1}\n{\"b\":2}\n\n{\"c\"");
  EXPECT_EQ(drain(buffer), (std::vector<std::string>{"{\"a\":1}", "{\"b\":2}", ""}));
  EXPECT_EQ(buffer.pendingBytes(), 4u);
  buffer.append(":3}\n");
  EXPECT_EQ(drain(buffer), (std::vector<std::string>{"{\"c\":3}"}));
  EXPECT_EQ(buffer.pendingBytes(), 0u);
}

// A line over the cap is dropped as one oversized marker, even when it arrives in many
// chunks, without holding its bytes, and the next line is intact.
TEST(LineBuffer, DropsOversizedLinesAndRecovers) {
  LineBuffer buffer(16);
  for (int i = 0; i < 10; ++i) {
    buffer.append(std::string(10, 'x'));
    EXPECT_TRUE(drain(buffer).empty());
    EXPECT_LE(buffer.pendingBytes(), 20u) << "an oversized line must not be buffered whole";
  }
  buffer.append("xx\nshort\n");
  EXPECT_EQ(drain(buffer), (std::vector<std::string>{"<oversized>", "short"}));
  buffer.append(std::string(20, 'y') + "\nok\n");
  EXPECT_EQ(drain(buffer), (std::vector<std::string>{"<oversized>", "ok"}));
}

}  // namespace
}  // namespace zorvane
