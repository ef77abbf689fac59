#include <gtest/gtest.h>
#include <sys/stat.h>

#include "core/learn/demo_check.h"
#include "core/learn/demonstration.h"
#include "support/run_zorvane.h"
#include "support/test_support.h"

namespace zorvane {
namespace {

using testing::ProcessRun;
using testing::runZorvane;

// `--selftest <dir> "@learn-demo <folder>"` creates the skill folder and sends the agent
// the prompt compiled from the fixed recording instead of the words typed; the stand-in
// echoes the prompt it received as its answer.
TEST(LearnDemoSelftest, SendsTheCompiledPromptToTheAgent) {
  testing::TempDir home, work;
  std::string scenario =
      home.write("scenario.json", R"({"turns":[[{"init":true},{"echoPrompt":true}]]})");
  std::string folder = home.file(".claude/skills/send-whatsapp-message-test");

  ProcessRun run = runZorvane({"--selftest", work.path(), "@learn-demo " + folder},
                              testing::fixtureBin() + ":/usr/bin:/bin", home.path(),
                              {{"STANDIN_SCENARIO", scenario}, {"STANDIN_LOG_DIR", home.path()}});

  std::string expected =
      Demonstration::compilePrompt({.name = "Send WhatsApp message",
                                    .slug = "send-whatsapp-message-test",
                                    .purpose = "",
                                    .app = "WhatsApp",
                                    .bundleID = "net.whatsapp.WhatsApp",
                                    .skillDir = folder,
                                    .steps = Demonstration::compile(DemoCheck::events())});
  EXPECT_EQ(run.code, 0) << run.out << run.err;
  EXPECT_TRUE(run.out.starts_with("target: folder:" + work.path() + " agent: claude ")) << run.out;
  EXPECT_TRUE(run.out.ends_with("\noutcome: answer(echo: " + expected + ")\n")) << run.out;
  EXPECT_EQ(run.out.find("@learn-demo"), std::string::npos)
      << "the typed words never reach the agent";
  struct stat info {};
  EXPECT_EQ(::stat(folder.c_str(), &info), 0) << "the skill folder was made";
  EXPECT_TRUE(S_ISDIR(info.st_mode));
  EXPECT_FALSE(testing::readAll(home.file("start-1.json")).empty()) << "the stand-in was the agent";
}
}  // namespace
}  // namespace zorvane
