// Demonstration: the pure logic between a recording and a skill. The user shows a task
// once; the recorder captures raw mouse and key events; `compile` folds them into
// human-sized steps; `compilePrompt` tells the agent how to turn those steps, and the
// frames saved beside them, into a skill file that Claude Code picks up.
//
//   std::vector<DemoStep> steps = Demonstration::compile(events);
//   std::string slug = Demonstration::slug("Send WhatsApp message");  // "send-whatsapp-message"
//   std::string prompt = Demonstration::compilePrompt({.name = ..., .slug = slug, ..., .steps =
//   steps});
//
// Folding, event by event in time order (equal times keep their order):
//   - a left click within 0.4 s and 6 points (in x and in y) of a lone click makes it a
//     double click; a right click never folds;
//   - scrolls in one direction make one step, whatever their number;
//   - typed characters within 1.5 s of the previous event join one "type" step; shift
//     counts as typing, any other modifier makes a key step ("⌘+s");
//   - a password field's characters become one "{{secret}}" placeholder;
//   - delete within 1.5 s of typing takes the last character back (and the step, when it
//     empties) rather than recording the typo; it never eats a placeholder.
//
// Every function is pure (but `slug`, which reads the clock for a name with no letters)
// and total: any events, in any order, with any values, give steps.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "core/base/iso8601.h"
#include "core/learn/demo_step.h"
#include "core/learn/raw_event.h"

namespace zorvane::Demonstration {

// The steps of a recording (see the file comment).
[[nodiscard]] std::vector<DemoStep> compile(std::vector<RawEvent> events);

// The folder name of a skill called `name`: lower case, every run of characters that are
// neither letters nor numbers one "-", no "-" at either end, at most 48 characters. A
// name without letters or numbers gives "skill-" and the time in seconds since 1970.
[[nodiscard]] std::string slug(std::string_view name);
[[nodiscard]] std::string slug(std::string_view name, SystemTime now);

// The numbered step lines of a prompt, one a line; a step with a frame points the agent
// at that screenshot in `skillDir`.
[[nodiscard]] std::string stepLines(const std::vector<DemoStep>& steps, std::string_view skillDir);

struct PromptInput {
  std::string name;      // the user's name for the skill
  std::string slug;      // its folder name
  std::string purpose;   // what it is for; may be empty
  std::string app;       // the application it was shown in
  std::string bundleID;  // that application's identifier
  std::string skillDir;  // the skill folder, where the frames already are
  std::vector<DemoStep> steps;
};

// The turn that asks the agent to write `skillDir`/SKILL.md from the demonstration.
[[nodiscard]] std::string compilePrompt(const PromptInput& input);

}  // namespace zorvane::Demonstration
