#include "core/mcp/peer_ipc.h"

#include <gtest/gtest.h>

#include "support/test_support.h"

namespace zorvane {
namespace {

// Requests keep their key order and leave absent fields out; decoding accepts unknown
// keys and refuses what isn't a request.
TEST(PeerRequest, CodesAndDecodes) {
  UUID from = *UUID::parse("E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
  PeerRequest request{PeerRequest::Op::createSchedule, from, "Clock in", "Open the time sheet", "weekdays 09:00"};
  EXPECT_EQ(request.encoded(),
            R"({"op":"createSchedule","from":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","to":"Clock in",)"
            R"("message":"Open the time sheet","when":"weekdays 09:00"})");
  EXPECT_EQ(PeerRequest::decode(request.encoded()).value(), request);
  PeerRequest bare{PeerRequest::Op::list, from, std::nullopt, std::nullopt, std::nullopt};
  EXPECT_EQ(bare.encoded(), R"({"op":"list","from":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F"})");
  auto extra = PeerRequest::decode(R"({"op":"tell","from":"e621e1f8-c36c-495a-93fc-0c247a3e6e5f","to":"1","x":[1]})");
  ASSERT_TRUE(extra) << extra.error();
  EXPECT_EQ(extra->to, "1");

  for (const char* line : {R"({"op":"fly","from":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F"})",
                           R"({"op":"list","from":"not-a-uuid"})", R"({"op":"list"})",
                           R"({"op":"ask","from":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","to":5})", "[]", "garbage"}) {
    SCOPED_TRACE(line);
    EXPECT_FALSE(PeerRequest::decode(line));
  }
  EXPECT_EQ(PeerResponse::decode(R"({"ok":false,"text":"No."})").value(), (PeerResponse{false, "No."}));
  EXPECT_FALSE(PeerResponse::decode(R"({"ok":"yes","text":"x"})"));
}

// A question that would close a cycle of waiting pieces is refused; other cycles
// don't matter to it.
TEST(PeerIPC, FindsCyclesOfWaiting) {
  UUID a, b, c, d;
  EXPECT_TRUE(PeerIPC::wouldDeadlock(a, a, {}));
  std::map<UUID, UUID> chain = {{a, b}, {b, c}};
  EXPECT_TRUE(PeerIPC::wouldDeadlock(c, a, chain)) << "c asking a: a waits for b, b for c";
  EXPECT_FALSE(PeerIPC::wouldDeadlock(a, c, chain));
  std::map<UUID, UUID> loop = {{b, c}, {c, b}};
  EXPECT_FALSE(PeerIPC::wouldDeadlock(d, b, loop)) << "a loop without the asker ends";
}

TEST(PeerIPC, SocketPathAndInboundText) {
  testing::TempHome home;
  {
    testing::ScopedEnv empty("ZORVANE_IPC_SOCK", std::string());
    EXPECT_EQ(PeerIPC::socketPath(), home.path() + "/.local/share/zorvane/ipc.sock");
  }
  testing::ScopedEnv set("ZORVANE_IPC_SOCK", std::string("/run/x.sock"));
  EXPECT_EQ(PeerIPC::socketPath(), "/run/x.sock");
  EXPECT_EQ(PeerIPC::addressPath(std::string(200, 'p')).size(), 103u);
  EXPECT_EQ(PeerIPC::inbound("Notes", "notes.txt", "Sum it up", false),
            "[Message from another Zorvane agent: \"Notes\" (bonded to notes.txt)]\nSum it up\n\n"
            "No reply is expected; act on it if relevant.");
  EXPECT_TRUE(PeerIPC::inbound("A", "B", "C", true).ends_with("Your final answer is sent back to that agent."));
}

}  // namespace
}  // namespace zorvane
