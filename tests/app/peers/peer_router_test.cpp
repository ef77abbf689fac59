#include "app/peers/peer_router.h"

#include <gtest/gtest.h>

#include "support/piece_world.h"

namespace zorvane {
namespace {

using testing::PieceWorld;

// Three folder pieces: "alpha" linked with "beta" and "beta2"; the router over them.
struct RouterWorld : PieceWorld {
  testing::TempDir dir;
  PeerRouter::Pieces pieces;
  bool proven = true;
  PeerRouter router{pieces, *activity, *clock, [this](const PeerRequest&) { return proven; }};
  std::shared_ptr<PieceController> add(const std::string& name) {
    auto piece = this->piece(Target::folder(URL::fileURL(dir.path() + "/" + name, true)));
    pieces[piece->pieceID()] = piece;
    return piece;
  }
  std::shared_ptr<PieceController> alpha = add("alpha"), beta = add("beta"), beta2 = add("beta2");
  RouterWorld() {
    alpha->link(*beta);
    alpha->link(*beta2);
    beta->link(*alpha);
  }
  std::optional<PeerResponse> send(PeerRequest::Op op, const UUID& from, std::optional<std::string> to,
                                   std::string message = "hi") {
    std::optional<PeerResponse> answer;
    router.route({op, from, std::move(to), message, std::nullopt},
                 [&answer](const PeerResponse& r) { answer = r; });
    return answer;
  }
};

// Who is meant: an index in name order, else a part of a name, else the only link; a
// miss lists the links; a sender that is gone is told so.
TEST(PeerRouter, ChoosesTheAddresseeAndSaysWhyNot) {
  RouterWorld w;
  using Op = PeerRequest::Op;
  auto listed = w.send(Op::list, w.alpha->pieceID(), std::nullopt);
  std::string listing = "0: beta — bonded to folder — Claude Code — idle\n1: beta2 — bonded to folder — Claude Code — idle";
  EXPECT_EQ(listed, (PeerResponse{true, listing}));
  EXPECT_EQ(w.send(Op::tell, w.alpha->pieceID(), " 1 "), (PeerResponse{true, "Delivered to beta2."}));
  EXPECT_EQ(w.send(Op::tell, w.alpha->pieceID(), "BETA"), (PeerResponse{true, "Delivered to beta."}));
  auto miss = w.send(Op::tell, w.alpha->pieceID(), std::nullopt);
  EXPECT_FALSE(miss->ok);
  EXPECT_EQ(miss->text, "No linked agent matches “”. Linked:\n0: beta — bonded to folder — Claude Code — busy\n"
                        "1: beta2 — bonded to folder — Claude Code — busy");
  EXPECT_EQ(w.send(Op::tell, w.beta->pieceID(), std::nullopt), (PeerResponse{true, "Delivered to alpha."}));
  EXPECT_EQ(w.send(Op::list, w.beta2->pieceID(), std::nullopt)->text.substr(0, 16), "No linked agents");
  EXPECT_EQ(w.send(Op::list, UUID(), std::nullopt), (PeerResponse{false, "This piece is no longer live."}));
  EXPECT_EQ(w.send(Op::list, PeerIdentity::hub(), std::nullopt)->text.substr(0, 9), "0: alpha ");
  EXPECT_EQ(w.send(Op::approve, UUID(), "run_command"),
            (PeerResponse{false, "No one to approve this (the piece is gone)."}));
  w.proven = false;
  for (auto op : {Op::list, Op::tell, Op::approve}) {
    EXPECT_EQ(w.send(op, w.alpha->pieceID(), "beta"),
              (PeerResponse{false, "Zorvane can't confirm which piece sent this request, so it refuses it."}));
  }
}

// An ask waits for the other piece's turn; asking back while it waits would deadlock
// and is refused; the reply clears the wait and draws the bulge back.
TEST(PeerRouter, AskWaitsForTheTurnAndRefusesADeadlock) {
  RouterWorld w;
  std::optional<PeerResponse> answer;
  w.router.route({PeerRequest::Op::ask, w.alpha->pieceID(), "beta", "what do you hold?", std::nullopt},
                 [&answer](const PeerResponse& r) { answer = r; });
  EXPECT_FALSE(answer);
  EXPECT_EQ(w.router.waiting().at(w.alpha->pieceID()), w.beta->pieceID());
  auto& betaAgent = *w.agents.made[1];
  ASSERT_EQ(betaAgent.sent.size(), 1u);
  EXPECT_NE(betaAgent.sent[0].find("what do you hold?"), std::string::npos);

  auto back = w.send(PeerRequest::Op::ask, w.beta->pieceID(), "alpha");
  EXPECT_EQ(back, (PeerResponse{false, "alpha is waiting on you, so asking it back would deadlock. Finish your turn "
                                       "and answer it instead."}));
  EXPECT_FALSE(w.router.linkCapsules(w.clock->wallSeconds()).empty());

  betaAgent.answer("two files");
  EXPECT_EQ(answer, (PeerResponse{true, "beta replied:\ntwo files"}));
  EXPECT_TRUE(w.router.waiting().empty());
  EXPECT_EQ(w.router.inFlight().back().from, w.beta->pieceID());
  w.queue.runUntilIdle();
  ASSERT_FALSE(w.activity->events().empty());
  EXPECT_EQ(w.activity->events().front().kind, ActivityEvent::Kind::reply);

  // A gated tool server's approval reaches the owning piece's card.
  std::optional<PeerResponse> verdict;
  w.router.route({PeerRequest::Op::approve, w.beta->pieceID(), "write_file",
                  R"({"path":"/tmp/x","content":"y","why":"Save notes"})", std::nullopt},
                 [&verdict](const PeerResponse& r) { verdict = r; });
  ASSERT_TRUE(w.beta->state().pending);
  EXPECT_NE(w.beta->state().pending->summary.find("Save notes"), std::string::npos);
  EXPECT_EQ(w.beta->state().pending->detail, "/tmp/x");
  w.beta->decide(false);
  EXPECT_EQ(verdict, (PeerResponse{false, "The user denied this action."}));
}

}  // namespace
}  // namespace zorvane
