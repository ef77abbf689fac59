// PeerRouter: what the running application does with each request that arrives on the
// peer socket. It finds out who asks, which pieces the asker may reach (a piece: its
// live links; the hub and the phone: every piece), which of them is meant, and hands the
// message to that piece's inbox; for `ask` it keeps the book of who waits for whom
// (`waiting`) and refuses a question that would close a cycle of waiting. Approvals
// from gated tool servers go to the owning piece, or to the hub for ids that are no
// piece. Every message is drawn as a bulge running along the link (`inFlight`).
//
// Who is asking: the request's `from` names a piece (or the hub, or the phone), and
// `provesSender` must confirm that the process which sent it speaks for that id (for a
// piece: a process of its agent's tree, as the tool server is). A request whose sender
// can't be proven is refused, so no agent can act as another piece, approve in its
// name, or pass as the hub.
//
// `done` is called exactly once for every request, now or after the asked piece's
// turn. Main queue only.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "app/pieces/piece_controller.h"
#include "core/base/clock.h"
#include "core/goo/blob.h"
#include "core/hub/activity_log.h"
#include "core/mcp/peer_ipc.h"

namespace zorvane {

// Identities that are no piece.
namespace PeerIdentity {
const UUID& hub();    // the hub's conversation and its scheduled runs
const UUID& phone();  // the phone
}  // namespace PeerIdentity

class PeerRouter {
 public:
  using Pieces = std::map<UUID, std::shared_ptr<PieceController>>;
  using Completion = std::function<void(const PeerResponse&)>;

  struct InFlight {
    UUID from, to;
    double start = 0;  // seconds since 1970
  };
  static constexpr double kBulgeSeconds = 1.6;

  // Whether the request's sender may speak for `request.from`.
  using SenderProof = std::function<bool(const PeerRequest& request)>;

  PeerRouter(const Pieces& pieces, ActivityLog& activity, const Clock& clock, SenderProof provesSender)
      : pieces_(pieces), activity_(activity), clock_(clock), provesSender_(std::move(provesSender)) {}

  // The hub's part, until and unless a hub is wired: schedule requests, and approvals
  // of ids that are no piece (returns whether it took the request).
  std::function<void(const PeerRequest&, Completion)> handleSchedule;
  std::function<bool(const UUID& owner, const std::string& tool, const JSONObject& input,
                     const std::string& why, std::function<void(bool)> respond)>
      hubApproval;

  void route(const PeerRequest& request, Completion done);

  // A bulge from `from` to `to`, drawn for 1.6 s.
  void animate(const UUID& from, const UUID& to);
  // Drops every waiting pair in which the piece stands.
  void forget(const UUID& piece);
  // The link tentacles between linked pieces at time `t`, each pair once, with the
  // messages running along them.
  [[nodiscard]] std::vector<GooCapsule> linkCapsules(double t) const;

  [[nodiscard]] const std::map<UUID, UUID>& waiting() const { return waiting_; }
  [[nodiscard]] const std::vector<InFlight>& inFlight() const { return inFlight_; }

 private:
  struct Sender {
    UUID id;
    std::string name;
    std::string target;
  };
  void routeMessage(const PeerRequest& request, Completion done);
  void routeApproval(const PeerRequest& request, Completion done);

  const Pieces& pieces_;
  ActivityLog& activity_;
  const Clock& clock_;
  SenderProof provesSender_;
  std::map<UUID, UUID> waiting_;
  std::vector<InFlight> inFlight_;
};

}  // namespace zorvane
