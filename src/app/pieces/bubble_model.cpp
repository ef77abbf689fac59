#include "app/pieces/bubble_model.h"

#include "core/base/relative_time.h"

namespace zorvane {

namespace {

const char* moodName(Mood mood) {
  switch (mood) {
    case Mood::working:
      return "working";
    case Mood::needsApproval:
      return "needsApproval";
    case Mood::idle:
      break;
  }
  return "idle";
}

// The text of an answer with every citation written out as its marker again, so that
// the Markdown view can find them inside lists and tables.
std::string withMarkers(const ParsedCitations& parsed) {
  std::string text;
  for (const Segment& segment : parsed.segments) {
    if (const auto* plain = segment.as<Segment::Text>()) {
      text += plain->text;
    } else if (const auto* cite = segment.as<Segment::Cite>(); cite && cite->index < parsed.citations.size()) {
      const Citation& c = parsed.citations[cite->index];
      text += "[[cite: " + c.file + " | " + c.locator + "]]";
    }
  }
  return text;
}

std::string textOnly(const std::string& answer) {
  std::string text;
  for (const Segment& segment : parseCitations(answer).segments)
    if (const auto* plain = segment.as<Segment::Text>()) text += plain->text;
  return text;
}

}  // namespace

std::string countOf(long long n, const std::string& unit) {
  return std::to_string(n) + " " + unit + (n == 1 ? "" : "s");
}

BubbleModel BubbleModel::of(const PieceState& state, SystemTime now) {
  BubbleModel m;
  m.mood = moodName(state.mood);
  m.showsChips = !state.attached.empty() || !state.links.empty();
  m.showsResume = state.resumeOffer.has_value();
  m.showsLearn = !state.learn.is<LearnPhase::Idle>();
  m.showsNotice = state.notice.has_value();
  m.showsApproval = state.pending.has_value();
  m.showsWorking = state.busy && !state.pending;
  m.showsAnswer = state.answer.has_value();
  m.showsError = state.error.has_value();
  bool learningByHand = state.learn.is<LearnPhase::Recording>() || state.learn.is<LearnPhase::Naming>();
  m.showsAsk = !state.busy && !state.pending && !state.resumeOffer && !learningByHand;
  m.showsLearnButton = state.canLearn && state.learn.is<LearnPhase::Idle>();

  if (const auto& r = state.resumeOffer) {
    m.resumeQuestion = "Continue the conversation from " + relativeTime(r->updatedAt, now) + "?";
    m.resumeAsked = "You asked: " + r->lastPrompt;
    m.resumeAnswer = textOnly(r->lastAnswer);
    m.resumeTurns = countOf(r->turns, "turn");
  }

  m.learnPhase = "idle";
  if (const auto* recording = state.learn.as<LearnPhase::Recording>()) {
    m.learnPhase = "recording";
    m.learnSteps = countOf(recording->steps, "step");
    m.learnHint = "Do the task in " + state.targetName +
                  " as you normally would. Every click and keystroke there becomes a step.";
  } else if (const auto* naming = state.learn.as<LearnPhase::Naming>()) {
    m.learnPhase = "naming";
    m.learnLabel = "Recorded " + std::to_string(naming->steps) + " steps";
  } else if (const auto* compiling = state.learn.as<LearnPhase::Compiling>()) {
    m.learnPhase = "compiling";
    m.learnLabel = "Turning your demo into \u201c" + compiling->name + "\u201d\u2026";
  } else if (const auto* done = state.learn.as<LearnPhase::Done>()) {
    m.learnPhase = "done";
    m.learnLabel = "Learned \u201c" + done->name + "\u201d. Tap it below any time, or just ask for it.";
  }

  if (const auto& p = state.pending) {
    m.irreversible = p->cls == ActionClass::irreversible;
    m.approvalLabel = m.irreversible ? "Can't be undone" : "Needs your OK";
    m.offersTrust = p->cls == ActionClass::act;
    m.approvalSummary = p->summary;
    m.approvalDetail = p->detailPreview ? *p->detailPreview : p->detail.value_or("");
  }

  m.workingText = state.status.empty() ? "Thinking" : state.status;

  if (state.answer) {
    if (!state.lastQuestion.empty())
      m.questionLine = (state.continued ? "Last time: " : "") + state.lastQuestion;
    m.answerMarkdown = withMarkers(*state.answer);
    for (const Citation& c : state.answer->citations) m.citationLabels.push_back(c.label());
  }

  m.showsAskHeading = !state.answer && !state.error;
  m.askPrompt = state.armedSkill ? "Add details (who, what\u2026) and press Return"
                                 : "Ask " + state.agentName + "\u2026";

  size_t first = state.transcript.size() > kTranscriptLines ? state.transcript.size() - kTranscriptLines : 0;
  for (size_t i = first; i < state.transcript.size(); ++i)
    m.transcriptTail += (i == first ? "" : "\n") + state.transcript[i];
  return m;
}

}  // namespace zorvane
