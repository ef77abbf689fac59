#include "app/peers/peer_router.h"

#include <algorithm>
#include <cmath>

#include "core/base/log.h"
#include "core/base/utf8.h"
#include "core/goo/shapes.h"

namespace zorvane {

namespace PeerIdentity {
const UUID& hub() {
  static const UUID id = *UUID::parse("00000000-0000-4000-8000-00000000171c");
  return id;
}
const UUID& phone() {
  static const UUID id = *UUID::parse("00000000-0000-4000-8000-0000000f0e0e");
  return id;
}
}  // namespace PeerIdentity

namespace {

std::string lowercased(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text;
}

std::string trimmed(const std::string& text) {
  auto begin = text.find_first_not_of(" \t\n\r");
  if (begin == std::string::npos) return "";
  auto end = text.find_last_not_of(" \t\n\r");
  return text.substr(begin, end - begin + 1);
}

std::optional<size_t> indexIn(const std::string& needle, size_t count) {
  if (needle.empty() || needle.size() > 9) return std::nullopt;
  size_t value = 0;
  for (char c : needle) {
    if (c < '0' || c > '9') return std::nullopt;
    value = value * 10 + static_cast<size_t>(c - '0');
  }
  if (value >= count) return std::nullopt;
  return value;
}

}  // namespace

void PeerRouter::route(const PeerRequest& request, Completion done) {
  bool known = pieces_.count(request.from) || request.from == PeerIdentity::hub() ||
               request.from == PeerIdentity::phone();
  if (known && (!provesSender_ || !provesSender_(request))) {
    Log::info("peer request refused: its sender can't be proven to be " + request.from.uuidString());
    done({false, "Zorvane can't confirm which piece sent this request, so it refuses it."});
    return;
  }
  switch (request.op) {
    case PeerRequest::Op::listSchedules:
    case PeerRequest::Op::createSchedule:
    case PeerRequest::Op::deleteSchedule:
      if (handleSchedule) {
        handleSchedule(request, std::move(done));
      } else {
        done({false, "Schedules can't be changed right now: the hub isn't running."});
      }
      return;
    case PeerRequest::Op::approve:
      routeApproval(request, std::move(done));
      return;
    case PeerRequest::Op::list:
    case PeerRequest::Op::ask:
    case PeerRequest::Op::tell:
      routeMessage(request, std::move(done));
      return;
  }
}

void PeerRouter::routeMessage(const PeerRequest& request, Completion done) {
  bool fromHub = request.from == PeerIdentity::hub() || request.from == PeerIdentity::phone();
  Sender sender;
  std::vector<std::shared_ptr<PieceController>> candidates;
  std::string empty;
  if (fromHub) {
    sender = {PeerIdentity::hub(),
              request.from == PeerIdentity::phone() ? "Zorvane (from your phone)" : "Zorvane hub", "the whole desktop"};
    for (const auto& [id, piece] : pieces_) candidates.push_back(piece);
    empty = "No pieces on screen. The user drops one by dragging down from the notch onto a file, folder or window.";
  } else {
    auto found = pieces_.find(request.from);
    if (found == pieces_.end()) {
      done({false, "This piece is no longer live."});
      return;
    }
    const PieceController& asker = *found->second;
    sender = {asker.pieceID(), asker.displayName(), asker.target().kindLabel() + ": " + asker.target().locator()};
    for (const UUID& id : asker.links())
      if (auto it = pieces_.find(id); it != pieces_.end()) candidates.push_back(it->second);
    empty = "No linked agents. The user links two pieces by dragging a tentacle from one piece onto the other "
            "piece's target.";
  }
  std::stable_sort(candidates.begin(), candidates.end(),
                   [](const auto& a, const auto& b) { return a->displayName() < b->displayName(); });
  std::string listing;
  for (size_t i = 0; i < candidates.size(); ++i) {
    const PieceController& piece = *candidates[i];
    if (i) listing += "\n";
    listing += std::to_string(i) + ": " + piece.displayName() + " — bonded to " + piece.target().kindLabel() +
               " — " + piece.agent().kind.displayName + " — " + piece.statusLine();
  }

  if (request.op == PeerRequest::Op::list) {
    done({true, candidates.empty() ? empty : listing});
    return;
  }
  if (candidates.empty()) {
    done({false, empty});
    return;
  }
  std::string needle = lowercased(trimmed(request.to.value_or("")));
  std::shared_ptr<PieceController> target;
  if (auto index = indexIn(needle, candidates.size())) {
    target = candidates[*index];
  } else if (!needle.empty()) {
    for (const auto& candidate : candidates)
      if (lowercased(candidate->displayName()).find(needle) != std::string::npos) {
        target = candidate;
        break;
      }
  } else if (candidates.size() == 1) {
    target = candidates.front();
  }
  if (!target) {
    done({false, "No linked agent matches “" + request.to.value_or("") + "”. Linked:\n" + listing});
    return;
  }

  std::string message = request.message.value_or("");
  UUID targetID = target->pieceID();
  std::string targetName = target->displayName();
  if (request.op == PeerRequest::Op::tell) {
    animate(sender.id, targetID);
    activity_.add(ActivityEvent(ActivityEvent::Kind::message, sender.name + " → " + targetName, message));
    target->deliver(sender.name, sender.target, message, nullptr);
    done({true, "Delivered to " + targetName + "."});
    return;
  }

  if (PeerIPC::wouldDeadlock(sender.id, targetID, waiting_)) {
    done({false, targetName + " is waiting on you, so asking it back would deadlock. Finish your turn and answer it "
                              "instead."});
    return;
  }
  waiting_[sender.id] = targetID;
  animate(sender.id, targetID);
  activity_.add(ActivityEvent(ActivityEvent::Kind::message, sender.name + " → " + targetName, message));
  Log::info("ask " + sender.name + " -> " + targetName + ": " + utf8Prefix(message, 120));
  UUID askerID = sender.id;
  std::string askerName = sender.name;
  target->deliver(sender.name, sender.target, message,
                  [this, askerID, askerName, targetID, targetName, done](const PeerResponse& response) {
                    // The entry is this question's only while it still points at this piece.
                    if (auto it = waiting_.find(askerID); it != waiting_.end() && it->second == targetID)
                      waiting_.erase(it);
                    animate(targetID, askerID);
                    activity_.add(ActivityEvent(ActivityEvent::Kind::reply, targetName + " → " + askerName,
                                                response.text, response.ok));
                    if (response.ok) {
                      done({true, targetName + " replied:\n" + response.text});
                    } else {
                      done({false, response.text});
                    }
                  });
}

void PeerRouter::routeApproval(const PeerRequest& request, Completion done) {
  std::string tool = request.to.value_or("tool");
  JSONObject input;
  if (request.message) {
    if (auto decoded = parseJSON(*request.message); decoded && decoded->is_object())
      input = decoded->get<JSONObject>();
  }
  std::string why = stringValue(subscript(JSONValue(input), "why")).value_or("");
  auto respond = [done](bool allow) {
    done(allow ? PeerResponse{true, "allowed"} : PeerResponse{false, std::string(kDeniedMessage)});
  };
  if (auto it = pieces_.find(request.from); it != pieces_.end()) {
    it->second->approveToolServerCall(tool, input, why, respond);
    return;
  }
  if (hubApproval && hubApproval(request.from, tool, input, why, respond)) return;
  done({false, "No one to approve this (the piece is gone)."});
}

void PeerRouter::animate(const UUID& from, const UUID& to) {
  double now = clock_.wallSeconds();
  std::erase_if(inFlight_, [now](const InFlight& entry) { return now - entry.start > kBulgeSeconds; });
  inFlight_.push_back({from, to, now});
}

void PeerRouter::forget(const UUID& piece) {
  std::erase_if(waiting_, [&piece](const auto& pair) { return pair.first == piece || pair.second == piece; });
}

std::vector<GooCapsule> PeerRouter::linkCapsules(double t) const {
  std::vector<GooCapsule> capsules;
  for (const auto& [aID, a] : pieces_) {
    for (const UUID& bID : a->links()) {
      if (!(aID.uuidString() < bID.uuidString())) continue;
      auto b = pieces_.find(bID);
      if (b == pieces_.end()) continue;
      std::vector<double> bulges;
      for (const InFlight& entry : inFlight_) {
        double age = t - entry.start;
        if (age < 0 || age >= kBulgeSeconds) continue;
        double phase = age / kBulgeSeconds;
        if (entry.from == aID && entry.to == bID) bulges.push_back(1 - phase);
        if (entry.from == bID && entry.to == aID) bulges.push_back(phase);
      }
      auto waitsA = waiting_.find(aID);
      auto waitsB = waiting_.find(bID);
      if ((waitsA != waiting_.end() && waitsA->second == bID) || (waitsB != waiting_.end() && waitsB->second == aID))
        bulges.push_back(t * 0.6 - std::floor(t * 0.6));
      auto strand = Shapes::tentacle(a->look().knot(), b->second->look().knot(), t, bulges, 0);
      capsules.insert(capsules.end(), strand.begin(), strand.end());
    }
  }
  return capsules;
}

}  // namespace zorvane
