#include "platform/linux/dbus_sleep_inhibitor.h"

#include <gtest/gtest.h>

#include "core/base/log.h"
#include "core/base/run_loop.h"
#include "desktop/dbus_test_service.h"
#include "support/test_support.h"

namespace zorvane {
namespace {

using namespace std::chrono_literals;

constexpr const char* kScreenSaverXML = R"(<node>
  <interface name="org.freedesktop.ScreenSaver">
    <method name="Inhibit">
      <arg type="s" direction="in"/><arg type="s" direction="in"/><arg type="u" direction="out"/>
    </method>
    <method name="UnInhibit"><arg type="u" direction="in"/></method>
  </interface>
</node>)";

// The first acquire asks the screen saver, the last release gives its cookie back, and
// the ones in between only count.
TEST(DBusSleepInhibitor, HoldsWhileAskedAndGivesBack) {
  auto service = testing::DBusTestService::start(
      "org.freedesktop.ScreenSaver", "/org/freedesktop/ScreenSaver", kScreenSaverXML,
      [](const std::string& method, GVariant*) -> GVariant* {
        return method == "Inhibit" ? g_variant_new("(u)", 1234u) : g_variant_new("()");
      });
  if (!service) GTEST_SKIP() << "no session bus (run under scripts/headless-desktop.sh), or the name is taken";
  testing::TempDir dir;
  RunLoop loop;
  DBusSleepInhibitor::Options options;
  options.systemBusAddress = "unix:path=" + dir.file("no-system-bus");
  DBusSleepInhibitor inhibitor(loop, options);
  std::vector<SleepHold> states;
  inhibitor.onChange = [&](SleepHold hold) { states.push_back(hold); };

  inhibitor.acquire("Zorvane is working on a task");
  inhibitor.acquire("a second task");
  ASSERT_TRUE(loop.runUntil([&] { return inhibitor.state() == SleepHold::held; }, 15.0));
  auto asked = service->waitForCall("Inhibit", 5s);
  ASSERT_TRUE(asked);
  EXPECT_EQ(asked->parameters, "('Zorvane', 'Zorvane is working on a task')");

  inhibitor.release();
  EXPECT_EQ(inhibitor.state(), SleepHold::held);
  inhibitor.release();
  inhibitor.release();  // one too many: ignored
  EXPECT_EQ(inhibitor.state(), SleepHold::released);
  auto given = service->waitForCall("UnInhibit", 10s);
  ASSERT_TRUE(given);
  EXPECT_EQ(given->parameters, "(1234,)");
  EXPECT_EQ(states, (std::vector<SleepHold>{SleepHold::asking, SleepHold::held, SleepHold::released}));
  size_t inhibits = 0;
  for (const auto& call : service->calls()) inhibits += call.method == "Inhibit";
  EXPECT_EQ(inhibits, 1u);
}

// With neither the screen saver nor logind there, the request ends `unavailable` soon,
// with a log line that says why.
TEST(DBusSleepInhibitor, WithoutAServiceIsUnavailableWithALogLine) {
  testing::TempDir dir;
  Log::setFile(dir.file("test.log"));
  RunLoop loop;
  DBusSleepInhibitor::Options options;
  options.screenSaverService = "org.zorvane.Test.NoScreenSaver";
  options.systemBusAddress = "unix:path=" + dir.file("no-system-bus");
  if (!std::getenv("DBUS_SESSION_BUS_ADDRESS")) options.sessionBusAddress = "unix:path=" + dir.file("no-bus");
  {
    DBusSleepInhibitor inhibitor(loop, options);
    inhibitor.acquire("Zorvane is working on a task");
    EXPECT_EQ(inhibitor.state(), SleepHold::asking);
    ASSERT_TRUE(loop.runUntil([&] { return inhibitor.state() == SleepHold::unavailable; }, 15.0));
    inhibitor.release();
    EXPECT_EQ(inhibitor.state(), SleepHold::released);
  }
  Log::flush();
  Log::setFile("");
  std::string log = testing::readAll(dir.file("test.log"));
  EXPECT_NE(log.find("keep awake: nothing keeps the machine awake (screen saver: "), std::string::npos) << log;
  EXPECT_NE(log.find("couldn't connect to the system bus"), std::string::npos) << log;
}

}  // namespace
}  // namespace zorvane
