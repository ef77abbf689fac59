// What the bubble shows for a piece's state: which rows stand and the texts they read.
#include "app/pieces/bubble_model.h"

#include <gtest/gtest.h>

#include "core/base/relative_time.h"

namespace zorvane {

namespace {

SystemTime at(long long seconds) { return SystemTime{} + std::chrono::seconds(seconds); }

PendingApproval approval(ActionClass cls) {
  PendingApproval p;
  p.cls = cls;
  p.summary = "Run `rm notes.txt`";
  p.detail = "rm notes.txt";
  return p;
}

}  // namespace

TEST(BubbleModel, RowsStandOnlyUnderTheirConditions) {
  PieceState state;
  state.agentName = "Codex";
  BubbleModel idle = BubbleModel::of(state, at(0));
  EXPECT_TRUE(idle.showsAsk);
  EXPECT_TRUE(idle.showsAskHeading);
  EXPECT_EQ(idle.askPrompt, "Ask Codex\u2026");
  EXPECT_FALSE(idle.showsWorking || idle.showsApproval || idle.showsAnswer || idle.showsChips);

  // Busy with an approval pending: neither the working line nor the ask section.
  state.busy = true;
  state.pending = approval(ActionClass::act);
  BubbleModel asking = BubbleModel::of(state, at(0));
  EXPECT_TRUE(asking.showsApproval);
  EXPECT_FALSE(asking.showsWorking);
  EXPECT_FALSE(asking.showsAsk);
  state.pending.reset();
  EXPECT_TRUE(BubbleModel::of(state, at(0)).showsWorking);
  EXPECT_EQ(BubbleModel::of(state, at(0)).workingText, "Thinking");

  // A resume offer hides the ask section until it is answered.
  state.busy = false;
  state.resumeOffer = SessionRecord{};
  EXPECT_FALSE(BubbleModel::of(state, at(0)).showsAsk);
  state.resumeOffer.reset();

  // The learn button shows only on a piece that can learn (one with a window).
  EXPECT_FALSE(BubbleModel::of(state, at(0)).showsLearnButton);
  state.canLearn = true;
  EXPECT_TRUE(BubbleModel::of(state, at(0)).showsLearnButton);
}

TEST(BubbleModel, ApprovalAnswerResumeAndTranscriptTexts) {
  PieceState state;
  state.pending = approval(ActionClass::irreversible);
  BubbleModel m = BubbleModel::of(state, at(0));
  EXPECT_EQ(m.approvalLabel, "Can't be undone");
  EXPECT_FALSE(m.offersTrust);
  EXPECT_EQ(m.approvalDetail, "rm notes.txt");
  state.pending = approval(ActionClass::draft);
  EXPECT_EQ(BubbleModel::of(state, at(0)).approvalLabel, "Needs your OK");
  EXPECT_FALSE(BubbleModel::of(state, at(0)).offersTrust);
  state.pending = approval(ActionClass::act);
  state.pending->detailPreview = "rm no\u2026";
  EXPECT_TRUE(BubbleModel::of(state, at(0)).offersTrust);
  EXPECT_EQ(BubbleModel::of(state, at(0)).approvalDetail, "rm no\u2026");

  // The answer keeps its markers for the Markdown view; one chip per distinct source.
  state.answer = parseCitations("- due [[cite: a.pdf | p. 2]]\n- paid [[cite:a.pdf|p. 2]] [[cite: b.txt]]");
  state.lastQuestion = "When is it due?";
  state.continued = true;
  m = BubbleModel::of(state, at(0));
  EXPECT_EQ(m.answerMarkdown, "- due [[cite: a.pdf | p. 2]]\n- paid [[cite: a.pdf | p. 2]] [[cite: b.txt | ]]");
  EXPECT_EQ(m.citationLabels, (std::vector<std::string>{"a.pdf p. 2", "b.txt"}));
  EXPECT_EQ(m.questionLine, "Last time: When is it due?");
  EXPECT_FALSE(m.showsAskHeading);

  SessionRecord record;
  record.lastPrompt = "Sum it up";
  record.lastAnswer = "It is a lease [[cite: lease.pdf | p. 1]].";
  record.turns = 1;
  record.updatedAt = at(0);
  state.resumeOffer = record;
  m = BubbleModel::of(state, at(2 * 3600 + 5));
  EXPECT_EQ(m.resumeQuestion, "Continue the conversation from 2 hours ago?");
  EXPECT_EQ(m.resumeAsked, "You asked: Sum it up");
  EXPECT_EQ(m.resumeAnswer, "It is a lease .");
  EXPECT_EQ(m.resumeTurns, "1 turn");

  for (int i = 1; i <= 61; ++i) state.transcript.push_back("line " + std::to_string(i));
  m = BubbleModel::of(state, at(0));
  EXPECT_EQ(m.transcriptTail.substr(0, 7), "line 2\n");
  EXPECT_EQ(m.transcriptTail.substr(m.transcriptTail.size() - 7), "line 61");

  EXPECT_EQ(relativeTime(at(0), at(30)), "just now");
  EXPECT_EQ(relativeTime(at(0), at(60)), "1 minute ago");
  EXPECT_EQ(relativeTime(at(0), at(86400 + 10)), "yesterday");
  EXPECT_EQ(relativeTime(at(0), at(10 * 86400)), "last week");
  EXPECT_EQ(relativeTime(at(0), at(3 * 365 * 86400)), "3 years ago");
  EXPECT_EQ(relativeTime(at(100), at(0)), "just now");
}

}  // namespace zorvane
