#include "ui/adapters/bubble_adapter.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QGuiApplication>
#include <QImage>
#include <QKeyEvent>
#include <QQuickItem>
#include <QQuickWindow>
#include <QtQml/qqmlextensionplugin.h>

#include "support/piece_world.h"
#include "ui/cards/card_views.h"
#include "ui/shell/qt_test_support.h"

Q_IMPORT_QML_PLUGIN(Zorvane_UiPlugin)

namespace zorvane {
namespace {

using testing::PieceWorld;

// The real bubble card on a real window, over a piece of PieceWorld.
struct ShownBubble {
  PieceWorld world;
  testing::TempDir dir;
  std::shared_ptr<PieceController> piece =
      world.piece(Target::folder(URL::fileURL(dir.path() + "/notes", true)));
  CardViews views{*world.clock};
  QQuickWindow window;
  BubbleAdapter* adapter = new BubbleAdapter(piece, [] { return SystemTime(); }, &window);
  int frames = 0;

  ShownBubble() {
    window.resize(360, 600);
    QObject::connect(&window, &QQuickWindow::frameSwapped, &window, [this] { ++frames; });
    views.showBubble(&window, adapter);
    window.show();
    window.requestActivate();
  }
  // Whether the window draws another frame after the card has read the piece's last
  // change: a card that froze never does.
  bool drawsAgain() {
    testing::waitFor([] { return false; }, 2 * BubbleAdapter::kReadInterval);
    int before = frames;
    window.update();
    return testing::waitFor([&] { return frames > before; }, 30000);
  }
  void type(const QString& text) {
    for (QChar c : text) {
      QKeyEvent press(QEvent::KeyPress, 0, Qt::NoModifier, QString(c));
      QKeyEvent release(QEvent::KeyRelease, 0, Qt::NoModifier, QString(c));
      QGuiApplication::sendEvent(&window, &press);
      QGuiApplication::sendEvent(&window, &release);
    }
  }
};

// Answers a user can meet, from the huge to the malformed, show as text and leave the
// card drawing and taking keys; keys typed while the agent works wait in the draft.
TEST(BubbleAdapter, HardAnswersShowAndTheCardStaysLive) {
  std::string why;
  if (!testing::ensureGuiApplication(why)) GTEST_SKIP() << why;
  ShownBubble bubble;
  ASSERT_TRUE(bubble.drawsAgain());
  testing::FakeAgent& agent = bubble.world.agents.last();

  std::string huge;
  while (huge.size() < 1'000'000)
    huge += "## Part\nSome **bold** text with `code` [[cite: a.md | line 3]].\n\n| a | b |\n|---|---|\n| 1 | 2 |\n\n"
            "```\nlet x = 1;\n```\n\n- one\n- two\n\n";
  const std::string broken = "**never closed <b>x</b> &amp; [[cite: ]]\n| a | b |\n|---|\n| 1 |\n```\nnever closed";
  const std::string rtl = "שלום עולם 👋🏽 مرحبا [[cite: ملف.txt]]";

  for (const std::string& answer : {huge, broken, rtl}) {
    SCOPED_TRACE(answer.substr(0, 20));
    bubble.piece->ask("What is here?");
    bubble.type("next ");  // the field is hidden while the agent works
    agent.answer(answer);
    EXPECT_TRUE(bubble.drawsAgain());
    EXPECT_TRUE(bubble.adapter->showsAnswer());
    EXPECT_GT(bubble.adapter->answer()->rowCount(), 0);
    EXPECT_EQ(bubble.piece->state().draft, "next ") << "what was typed meanwhile is kept";
    bubble.type("q");
    EXPECT_EQ(bubble.piece->state().draft, "next q") << "the field takes keys again";
    bubble.adapter->setDraft("");
  }
  QString text = bubble.adapter->answerText();
  EXPECT_TRUE(text.contains(QString::fromUtf8("שלום עולם 👋🏽 مرحبا"))) << text.toStdString();
  bubble.piece->ask("again");
  agent.answer(broken);
  ASSERT_TRUE(bubble.drawsAgain());
  QString html;
  MarkdownModel* blocks = bubble.adapter->answer();
  for (int i = 0; i < blocks->rowCount(); ++i)
    html += blocks->data(blocks->index(i), MarkdownModel::HtmlRole).toString() + "\n";
  EXPECT_TRUE(html.contains("&lt;b&gt;x&lt;/b&gt; &amp;amp;") && !html.contains("<b>x</b>"))
      << "markup in an answer is shown, never applied: " << html.toStdString();

  // Retired with its bubble open: the card stays drawable and its buttons do nothing.
  bubble.piece->retire(true);
  bubble.adapter->decide(true);
  bubble.adapter->submit();
  EXPECT_TRUE(bubble.drawsAgain());
}

// An approval in the bubble takes the keyboard: a stray Return allows nothing, Tab
// reaches Allow and Return allows.
TEST(BubbleAdapter, ApprovalIsAnsweredByKeys) {
  std::string why;
  if (!testing::ensureGuiApplication(why)) GTEST_SKIP() << why;
  ShownBubble bubble;
  bubble.piece->ask("Tidy up");
  std::vector<bool> verdicts;
  bubble.piece->requestApproval("Bash", {{"command", "touch x"}}, "", [&](bool allow) { verdicts.push_back(allow); });
  ASSERT_TRUE(bubble.drawsAgain());
  ASSERT_TRUE(bubble.adapter->showsApproval());
  auto key = [&](int code) {
    QKeyEvent press(QEvent::KeyPress, code, Qt::NoModifier);
    QKeyEvent release(QEvent::KeyRelease, code, Qt::NoModifier);
    QGuiApplication::sendEvent(&bubble.window, &press);
    QGuiApplication::sendEvent(&bubble.window, &release);
  };
  key(Qt::Key_Return);
  EXPECT_TRUE(verdicts.empty()) << "focus on " << bubble.window.activeFocusItem()->metaObject()->className();
  key(Qt::Key_Tab);
  QQuickItem* focus = bubble.window.activeFocusItem();
  EXPECT_EQ(focus ? focus->property("text").toString() : QString(), "Allow");
  key(Qt::Key_Return);
  EXPECT_EQ(verdicts, std::vector<bool>{true});
}

// The item of the card whose property `name` reads `value`, or null.
QQuickItem* itemWith(QQuickItem* root, const char* name, const QString& value) {
  if (root->property(name).toString() == value) return root;
  for (QQuickItem* child : root->childItems())
    if (QQuickItem* found = itemWith(child, name, value)) return found;
  return nullptr;
}

// After a demonstration the learn section asks for the skill's name, with the count of
// recorded steps; the picture joins the cards' gallery (build/cards-gallery).
TEST(BubbleAdapter, AsksToNameARecordedSkill) {
  std::string why;
  if (!testing::ensureGuiApplication(why)) GTEST_SKIP() << why;
  ShownBubble bubble;
  bubble.piece->mutableState().learn = {LearnPhase::Naming{7}};
  bubble.piece->mutableState().onChange();
  ASSERT_TRUE(bubble.drawsAgain());
  QQuickItem* card = bubble.window.contentItem();
  EXPECT_EQ(bubble.adapter->learnPhase(), "naming");
  EXPECT_TRUE(itemWith(card, "text", "Recorded 7 steps"));
  QQuickItem* name = itemWith(card, "placeholderText", "Name it, e.g. Send WhatsApp message");
  ASSERT_TRUE(name);
  EXPECT_TRUE(name->isVisible() && itemWith(card, "text", "Learn it")->isVisible());
  EXPECT_FALSE(bubble.adapter->showsAsk()) << "the ask section waits while the skill is named";
  QDir().mkpath(ZORVANE_BUILD_DIR "/cards-gallery");
  bubble.window.grabWindow().save(ZORVANE_BUILD_DIR "/cards-gallery/learn-naming.png");
}

}  // namespace
}  // namespace zorvane
