// PieceWorld: everything a PieceController needs, in memory: a run loop on a fake clock
// (passing in steps of 0.05 s), the fake desktop and surfaces, the stores in a temporary
// home, and agents from FakeAgents. `piece(...)` bonds one the way the application does.
#pragma once

#include <memory>

#include "app/pieces/piece_controller.h"
#include "platform/fake/fake_application_services.h"
#include "support/fake_agent.h"
#include "support/fake_time.h"
#include "support/test_support.h"

namespace zorvane::testing {

struct PieceWorld : FakeTime {
  TempHome home;
  FakeApplicationServices fakes{queue};
  Registry registry;
  SessionStore store{home.path() + "/data/sessions.json"};
  std::shared_ptr<ActivityLog> activity = ActivityLog::make(home.path() + "/data/activity.json", queue);
  SkillIndex skills{home.path() + "/data/skills.json"};
  FakeAgents agents;
  PieceServices services{queue,
                         *clock,
                         fakes.surfaces,
                         fakes.desktop.services,
                         registry,
                         store,
                         *activity,
                         skills,
                         agents.maker(),
                         home.path() + "/data/sessions",
                         home.path() + "/data/audit.log",
                         "/usr/bin/zorvane",
                         4242,
                         &fakes.inputMonitor,
                         {home.path() + "/data"}};

  static InstalledAgent agent(const AgentKind& kind) { return {kind, "/usr/bin/" + kind.id}; }

  std::shared_ptr<PieceController> piece(const Target& target, std::shared_ptr<Anchor> anchor = nullptr,
                                         const AgentKind& kind = AgentKind::claude(),
                                         std::optional<SessionRecord> previous = std::nullopt) {
    if (!anchor) anchor = std::make_shared<HiddenAnchor>(Rect{100, 100, 64, 64});
    auto entry = registry.bond(target).entry;
    return PieceController::make(services, entry, std::move(previous), Resolved{target, anchor}, {100, 100},
                                 agent(kind), false, true);
  }
};

}  // namespace zorvane::testing
