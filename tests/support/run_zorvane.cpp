#include "support/run_zorvane.h"

#include <gtest/gtest.h>

#include "core/base/child_process.h"
#include "core/base/run_loop.h"

namespace zorvane::testing {

std::string fixtureBin() {
  return std::string(ZORVANE_FIXTURES_DIR) + "/bin";
}

ProcessRun runZorvane(const std::vector<std::string>& args, const std::string& path,
                      const std::string& home, const std::map<std::string, std::string>& extra) {
  RunLoop loop;
  Environment env = Environment::current();
  env.set("PATH", path);
  env.set("HOME", home);
  env.set("TMPDIR", home);
  for (const char* name :
       {"XDG_DATA_HOME", "XDG_STATE_HOME", "XDG_CONFIG_HOME", "STANDIN_SCENARIO"}) {
    env.unset(name);
  }
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

}  // namespace zorvane::testing
