// BubbleModel: what the bubble shows for one PieceState, worked out once so that the
// view only lays it out. Which rows stand, the texts that depend on the state (counts,
// relative times, the approval's label), and the answer rebuilt as Markdown with its
// citation markers. The view's own state (peeking at the transcript, the skill name
// being typed) is not here.
//
//   BubbleModel m = BubbleModel::of(piece.state(), clock.wallNow());
//   if (m.showsApproval) ... m.approvalLabel ...
//
// Pure; any thread.
#pragma once

#include <string>
#include <vector>

#include "app/pieces/piece_state.h"
#include "core/base/clock.h"

namespace zorvane {

struct BubbleModel {
  static constexpr size_t kTranscriptLines = 60;

  // --- Which rows stand, top to bottom ---
  bool showsChips = false;     // attached things and links
  bool showsResume = false;
  bool showsLearn = false;
  bool showsNotice = false;
  bool showsApproval = false;
  bool showsWorking = false;
  bool showsAnswer = false;
  bool showsError = false;
  bool showsAsk = false;

  // --- Header ---
  std::string mood;            // "idle", "working", "needsApproval"
  bool showsLearnButton = false;

  // --- Resume card ---
  std::string resumeQuestion;  // "Continue the conversation from 2 hours ago?"
  std::string resumeAsked;     // "You asked: …"
  std::string resumeAnswer;    // the last answer's text, without citation markers
  std::string resumeTurns;     // "1 turn", "3 turns"

  // --- Learn section ---
  std::string learnPhase;      // "recording", "naming", "compiling", "done" or "idle"
  std::string learnSteps;      // "1 step", "4 steps" while recording
  std::string learnHint;       // what to do while recording
  std::string learnLabel;      // "Recorded 4 steps", "Turning your demo into “…”…", "Learned “…”. …"

  // --- Approval ---
  std::string approvalLabel;   // "Can't be undone" or "Needs your OK"
  bool irreversible = false;
  bool offersTrust = false;    // "Allow all for this piece" only for clicks and typing
  std::string approvalSummary;
  std::string approvalDetail;  // empty: no details

  // --- Working line ---
  std::string workingText;     // the status, or "Thinking"

  // --- Answer ---
  std::string questionLine;    // empty: none; "Last time: …" for an earlier session's answer
  std::string answerMarkdown;  // the answer with its markers written out again
  std::vector<std::string> citationLabels;

  // --- Ask section ---
  bool showsAskHeading = false;  // "What should I do?" before anything was answered
  std::string askPrompt;         // the field's placeholder

  // --- Transcript (peek) ---
  std::string transcriptTail;  // the last 60 lines

  [[nodiscard]] static BubbleModel of(const PieceState& state, SystemTime now);
};

// "1 step", "2 steps"; the same for any other unit.
[[nodiscard]] std::string countOf(long long n, const std::string& unit);

}  // namespace zorvane
