// Skills: turning a finished recording into a skill, the steps that need no window.
//
// `save` makes the skill folder under ~/.claude/skills, copies the frames the steps point
// at out of the recorder's working folder, writes the steps as "recording.json", removes
// the working folder, enters the skill in the index, tells the activity log, and gives
// back the turn for the agent, which writes SKILL.md itself. Until it has, the skill has
// an index entry but no file, and SkillIndex::skillsForBundle leaves it out.
//
//   SavedSkill saved = Skills::save({.name = "Send WhatsApp message", .purpose = "",
//                                    .steps = steps, .recordingFolder = recorder.folder(),
//                                    .bundleID = "net.whatsapp.WhatsApp", .app = "WhatsApp"});
//   piece.send(saved.prompt, /*shown as*/ saved.shownText);
//
// Failures along the way (a frame that is gone, a folder that can't be made) are logged
// and the rest goes on: the agent still gets its turn and can say what is missing.
#pragma once

#include <string>
#include <vector>

#include "core/base/iso8601.h"
#include "core/hub/activity_log.h"
#include "core/learn/demo_step.h"
#include "core/learn/skill_index.h"

namespace zorvane::Skills {

struct SaveRequest {
  std::string name;             // the user's name for the skill
  std::string purpose;          // what it is for; may be empty
  std::vector<DemoStep> steps;  // Demonstration::compile of the recording
  std::string recordingFolder;  // the recorder's working folder, holding the frames
  std::string bundleID;         // the recorded window's application
  std::string app;              // its name
};

struct SavedSkill {
  std::string slug;
  std::string folder;  // the skill folder
  std::string prompt;  // the turn for the agent: Demonstration::compilePrompt
  std::string
      shownText;  // how the conversation shows that turn: Learn “name” from my demo (n steps)
};

// Saves the recording as a skill (see the file comment). `now` dates the index entry.
SavedSkill save(const SaveRequest& request, SkillIndex& index = Skills::index(),
                ActivityLog& log = ActivityLog::shared(),
                SystemTime now = std::chrono::system_clock::now());

}  // namespace zorvane::Skills
