// A FileManager1 owner that takes ShowItems and never answers, on the private bus that
// tests/desktop/file_manager_desktop.sh makes without any file manager: the reveal ends
// with a failure at its bound, and a restore still answers exactly once.
#include <gio/gio.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <string>

#include "app/resolver/restorer.h"
#include "core/base/run_loop.h"
#include "desktop/desktop_apps.h"
#include "platform/desktop.h"
#include "platform/linux/file_manager_bus.h"
#include "support/test_support.h"

namespace zorvane {
namespace {

using namespace std::chrono_literals;

// Owns org.freedesktop.FileManager1 on the session bus and drops every method call made
// to it before GDBus could answer, so the caller waits for a reply that never comes.
class SilentFileManager1 {
 public:
  // Nothing when the bus can't be reached or the name is taken.
  static std::unique_ptr<SilentFileManager1> start() {
    const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS");
    if (!address || !*address) return nullptr;
    std::unique_ptr<SilentFileManager1> service(new SilentFileManager1());
    service->connection_ = g_dbus_connection_new_for_address_sync(
        address,
        GDBusConnectionFlags(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                             G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, nullptr);
    if (!service->connection_) return nullptr;
    service->filter_ = g_dbus_connection_add_filter(service->connection_, &SilentFileManager1::filter, service.get(), nullptr);
    GVariant* reply = g_dbus_connection_call_sync(
        service->connection_, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "RequestName",
        g_variant_new("(su)", "org.freedesktop.FileManager1", 4u), G_VARIANT_TYPE("(u)"), G_DBUS_CALL_FLAGS_NONE, 5000,
        nullptr, nullptr);
    guint32 answer = 0;
    if (reply) g_variant_get(reply, "(u)", &answer), g_variant_unref(reply);
    if (answer != 1) return nullptr;  // not the primary owner
    return service;
  }
  ~SilentFileManager1() {
    if (!connection_) return;
    if (filter_) g_dbus_connection_remove_filter(connection_, filter_);
    g_dbus_connection_close_sync(connection_, nullptr, nullptr);
    g_object_unref(connection_);
  }
  int dropped() const { return dropped_.load(); }

 private:
  SilentFileManager1() = default;
  // Runs on GDBus's worker thread for each incoming message; a method call is eaten.
  static GDBusMessage* filter(GDBusConnection*, GDBusMessage* message, gboolean incoming, gpointer data) {
    if (!incoming || g_dbus_message_get_message_type(message) != G_DBUS_MESSAGE_TYPE_METHOD_CALL) return message;
    const char* interface = g_dbus_message_get_interface(message);
    if (!interface || std::strcmp(interface, "org.freedesktop.FileManager1") != 0) return message;
    ++static_cast<SilentFileManager1*>(data)->dropped_;
    g_object_unref(message);
    return nullptr;
  }

  GDBusConnection* connection_ = nullptr;
  guint filter_ = 0;
  std::atomic<int> dropped_{0};
};

class FileManagerBusFaults : public ::testing::Test {
 protected:
  void SetUp() override {
    const char* mode = std::getenv("ZORVANE_FILE_MANAGER_DESKTOP");
    if (!mode || std::string(mode) != "none")
      GTEST_SKIP() << "run by tests/desktop/file_manager_desktop.sh none (CTest: filemanager.faults.headless)";
  }
};

// ShowItems to an owner that never answers: reveal fails with the bound in its text once
// the bound has passed, and a restore of a file that no window shows falls back and calls
// its completion exactly once (with nothing: no file manager's window is there).
TEST_F(FileManagerBusFaults, HangingOwnerEndsAtTheBound) {
  auto silent = SilentFileManager1::start();
  ASSERT_TRUE(silent) << "could not own org.freedesktop.FileManager1 on the test bus";
  testing::TempDir root;
  root.write("kept/one.txt", "x");
  URL file = URL::fileURL(root.file("kept/one.txt"));

  RunLoop queue;
  FileManagerBus bus(queue, {.revealTimeout = 1500ms, .busTimeout = 1000ms});
  std::optional<Expected<void>> revealed;
  bus.reveal(file, [&](Expected<void> answer) { revealed = std::move(answer); });
  ASSERT_TRUE(queue.runUntil([&] { return revealed.has_value(); }, 10)) << "reveal never completed";
  ASSERT_FALSE(*revealed);
  EXPECT_EQ(revealed->error(), "file manager: ShowItems got no answer within 1500 ms");
  EXPECT_EQ(silent->dropped(), 1);

  auto desktop = Desktop::open();
  Restorer restorer(desktop->services(), bus, queue);
  int completions = 0;
  std::optional<Resolved> answer;
  restorer.resolve(Target::file(file), [&](std::optional<Resolved> resolved) {
    ++completions;
    answer = std::move(resolved);
  });
  ASSERT_TRUE(queue.runUntil([&] { return completions > 0; }, 20)) << "the restore never completed";
  EXPECT_FALSE(answer);
  EXPECT_EQ(silent->dropped(), 2);
  // A late second completion would come within a few attempt intervals.
  EXPECT_FALSE(queue.runUntil([&] { return completions > 1; }, 3 * Restorer::kAttemptInterval));
  EXPECT_EQ(completions, 1);
}

}  // namespace
}  // namespace zorvane
