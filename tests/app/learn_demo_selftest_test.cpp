#include <gtest/gtest.h>
#include <sys/stat.h>

#include <map>

#include "core/base/child_process.h"
#include "core/base/environment.h"
#include "core/base/run_loop.h"
#include "core/learn/demo_check.h"
#include "core/learn/demonstration.h"
#include "support/test_support.h"

namespace zorvane {
namespace {

struct ProcessRun {
  std::string out, err;
  int code = -1;
};

// Runs the real executable with the stand-in agents first on PATH and a temporary home.
ProcessRun runZorvane(const std::vector<std::string>& args, const std::string& home,
                      const std::map<std::string, std::string>& extra) {
  RunLoop loop;
  Environment env = Environment::current();
  env.set("PATH", std::string(ZORVANE_FIXTURES_DIR) + "/bin:/usr/bin:/bin");
  env.set("HOME", home);
  env.set("TMPDIR", home);
  for (const char* name :
       {"XDG_DATA_HOME", "XDG_STATE_HOME", "XDG_CONFIG_HOME", "STANDIN_SCENARIO"})
    env.unset(name);
  for (const auto& [name, value] : extra) env.set(name, value);
  auto child = ChildProcess::create({ZORVANE_EXECUTABLE, args, "", env, true}, loop);
  ProcessRun run;
  bool done = false;
  child->onStdout = [&](std::string chunk) { run.out += chunk; };
  child->onStderr = [&](std::string chunk) { run.err += chunk; };
  child->onExit = [&](int code) {
    run.code = code;
    done = true;
  };
  EXPECT_TRUE(child->start());
  if (!loop.runUntil([&] { return done; }, 60)) {
    child->kill();
    loop.runUntil([&] { return done; }, 10);
    ADD_FAILURE() << "zorvane didn't finish; output so far:\n" << run.out;
  }
  return run;
}

// `--selftest <dir> "@learn-demo <folder>"` creates the skill folder and sends the agent
// the prompt compiled from the fixed recording instead of the words typed; the stand-in
// echoes the prompt it received as its answer.
TEST(LearnDemoSelftest, SendsTheCompiledPromptToTheAgent) {
  testing::TempDir home, work;
  std::string scenario =
      home.write("scenario.json", R"({"turns":[[{"init":true},{"echoPrompt":true}]]})");
  std::string folder = home.file(".claude/skills/send-whatsapp-message-test");

  ProcessRun run = runZorvane({"--selftest", work.path(), "@learn-demo " + folder}, home.path(),
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
  EXPECT_NE(
      run.out.find(
          "1. Click “Search or start new chat” textfield in “Chats” (at 160,90)\n2. Type “Mom”\n"),
      std::string::npos);
  EXPECT_EQ(run.out.find("@learn-demo"), std::string::npos)
      << "the typed words never reach the agent";
  struct stat info {};
  EXPECT_EQ(::stat(folder.c_str(), &info), 0) << "the skill folder was made";
  EXPECT_TRUE(S_ISDIR(info.st_mode));
  EXPECT_FALSE(testing::readAll(home.file("start-1.json")).empty()) << "the stand-in was the agent";

  // Any other prompt goes through as typed.
  ProcessRun plain = runZorvane({"--selftest", work.path(), "learn-demo is just words"},
                                home.path(), {{"STANDIN_SCENARIO", scenario}});
  EXPECT_EQ(plain.code, 0) << plain.out << plain.err;
  EXPECT_TRUE(plain.out.ends_with("\noutcome: answer(echo: learn-demo is just words)\n"))
      << plain.out;
}

}  // namespace
}  // namespace zorvane
