#include "platform/linux/dbus_notices.h"

#include <gtest/gtest.h>

#include <sstream>

#include "core/base/log.h"
#include "core/base/run_loop.h"
#include "desktop/dbus_test_service.h"
#include "support/test_support.h"

namespace zorvane {
namespace {

using namespace std::chrono_literals;

constexpr const char* kNotificationsXML = R"(<node>
  <interface name="org.freedesktop.Notifications">
    <method name="GetCapabilities"><arg type="as" direction="out"/></method>
    <method name="Notify">
      <arg type="s" direction="in"/><arg type="u" direction="in"/><arg type="s" direction="in"/>
      <arg type="s" direction="in"/><arg type="s" direction="in"/><arg type="as" direction="in"/>
      <arg type="a{sv}" direction="in"/><arg type="i" direction="in"/><arg type="u" direction="out"/>
    </method>
    <signal name="ActionInvoked"><arg type="u"/><arg type="s"/></signal>
  </interface>
</node>)";

Expected<void> notify(RunLoop& loop, Notices& notices, const std::string& title, const std::string& body) {
  std::optional<Expected<void>> result;
  notices.notify(title, body, [&](Expected<void> done) { result = std::move(done); });
  EXPECT_TRUE(loop.runUntil([&] { return result.has_value(); }, 15.0)) << "no answer for " << title;
  return result.value_or(Failure{"no answer"});
}

// A notice reaches the service with its title, its body escaped for a service that reads
// markup, and a default action; a click on it (and only on one of ours) comes back.
TEST(DBusNotices, ShowsNoticesAndReportsClicks) {
  auto service = testing::DBusTestService::start(
      "org.freedesktop.Notifications", "/org/freedesktop/Notifications", kNotificationsXML,
      [](const std::string& method, GVariant*) -> GVariant* {
        if (method == "GetCapabilities") {
          const char* capabilities[] = {"body", "actions", "body-markup"};
          return g_variant_new("(@as)", g_variant_new_strv(capabilities, 3));
        }
        return g_variant_new("(u)", 41u);
      });
  if (!service) GTEST_SKIP() << "no session bus (run under scripts/headless-desktop.sh), or the name is taken";
  RunLoop loop;
  DBusNotices notices(loop);
  int clicks = 0;
  notices.onActivated = [&] { ++clicks; };

  auto shown = notify(loop, notices, "“Backup” needs your OK", "Delete <3 files> & go");
  ASSERT_TRUE(shown) << shown.error();
  auto call = service->waitForCall("Notify", 5s);
  ASSERT_TRUE(call);
  EXPECT_EQ(call->parameters,
            "('Zorvane', 0, '', '“Backup” needs your OK', 'Delete &lt;3 files&gt; &amp; go', ['default', 'Open'], "
            "{'desktop-entry': <'zorvane'>}, -1)");

  service->emit("org.freedesktop.Notifications", "ActionInvoked", g_variant_new("(us)", 99u, "default"));
  service->emit("org.freedesktop.Notifications", "ActionInvoked", g_variant_new("(us)", 41u, "default"));
  ASSERT_TRUE(loop.runUntil([&] { return clicks > 0; }, 10.0));
  // The signals came before this reply on the same connection, so all clicks are in.
  ASSERT_TRUE(notify(loop, notices, "Done", "ok"));
  EXPECT_EQ(clicks, 1) << "a click on another program's notice counted";
}

// Without a service, or without a bus, a notice fails at once with the reason, and the
// log says so once, not for every notice.
TEST(DBusNotices, WithoutAServiceFailsPromptlyAndLogsOnce) {
  if (!std::getenv("DBUS_SESSION_BUS_ADDRESS")) GTEST_SKIP() << "no session bus";
  testing::TempDir dir;
  Log::setFile(dir.file("test.log"));
  RunLoop loop;
  DBusNotices::Options options;
  options.service = "org.zorvane.Test.NoNotices";
  DBusNotices nobody(loop, options);
  auto first = notify(loop, nobody, "One", "1");
  auto second = notify(loop, nobody, "Two", "2");
  ASSERT_FALSE(first);
  EXPECT_EQ(first.error().rfind("notices: ", 0), 0u) << first.error();
  EXPECT_NE(first.error().find("org.zorvane.Test.NoNotices"), std::string::npos) << first.error();
  ASSERT_FALSE(second);

  DBusNotices::Options noBus;
  noBus.busAddress = "unix:path=" + dir.file("no-bus");
  DBusNotices lonely(loop, noBus);
  auto third = notify(loop, lonely, "Three", "3");
  ASSERT_FALSE(third);
  EXPECT_EQ(third.error().rfind("notices: couldn't connect to the session bus (", 0), 0u) << third.error();

  Log::flush();
  Log::setFile("");
  std::istringstream lines(testing::readAll(dir.file("test.log")));
  int logged = 0;
  for (std::string line; std::getline(lines, line);) logged += line.find("notices are not shown") != std::string::npos;
  EXPECT_EQ(logged, 2) << "one line for each of the two notice services";
}

}  // namespace
}  // namespace zorvane
