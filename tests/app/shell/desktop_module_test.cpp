#include "app/shell/desktop_module.h"

#include <gtest/gtest.h>

#include "core/base/file_io.h"
#include "support/test_support.h"
#include "support/tool_server_client.h"

namespace zorvane {
namespace {

// The tool server maps the desktop only for a call that needs a window: after
// `initialize` and a call that touches none, its memory holds neither the module nor a
// library of the desktop (read from /proc, so the check can't flake on a slow machine);
// the first window tool brings the module in.
TEST(DesktopModule, ToolServerMapsTheDesktopOnlyForWindowTools) {
  testing::TempDir dir;
  std::string scope = dir.path() + "/scope.json";
  ASSERT_TRUE(writeFileAtomically(scope, R"({"entries":[{"name":"Notes","kind":"app window","windowID":)"
                                         R"(4194311,"bundleID":"org.example.notes"}],"gate":false})"));
  testing::ToolServerClient server(scope);
  ASSERT_TRUE(server.ready());
  auto mapped = [&server] { return testing::readAll("/proc/" + std::to_string(server.pid()) + "/maps"); };
  const char* desktop[] = {"zorvane-desktop.so", "libX11", "libxcb", "libQt6", "libatspi", "libglib", "libdbus"};
  for (const char* library : desktop) EXPECT_EQ(mapped().find(library), std::string::npos) << library;

  EXPECT_FALSE(server.call("list_targets", JSONObject{}).isError);
  for (const char* library : desktop) EXPECT_EQ(mapped().find(library), std::string::npos) << library;

  server.call("screenshot", JSONObject{});  // no such window here: refused, but looked for
  EXPECT_NE(mapped().find("zorvane-desktop.so"), std::string::npos) << "a window tool loads the desktop";
}

}  // namespace
}  // namespace zorvane
