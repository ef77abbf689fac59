import QtQuick
import Zorvane.Ui

// The bubble's card: the rows the piece's state calls for, top to bottom, on a dark
// card 360 points wide. Escape closes it; Tab walks its controls in reading order.
FocusScope {
    id: root

    required property BubbleAdapter bubble
    property bool peek: false

    width: 360
    implicitHeight: column.implicitHeight + 28
    onImplicitHeightChanged: root.bubble.setContentHeight(root.implicitHeight)
    Component.onCompleted: root.bubble.setContentHeight(root.implicitHeight)
    Keys.onEscapePressed: root.bubble.close()
    // Typing while the ask field is hidden (a turn under way, an approval open) goes into
    // the draft, which the field shows when it comes back: nothing typed is lost.
    Keys.onPressed: event => {
        if (root.bubble.showsAsk || (event.modifiers & (Qt.ControlModifier | Qt.AltModifier | Qt.MetaModifier)))
            return;
        if (event.key === Qt.Key_Backspace) {
            root.bubble.setDraft(root.bubble.draft.slice(0, -1));
            event.accepted = true;
        } else if (event.text.length > 0 && event.text.charCodeAt(0) >= 32 && event.text.charCodeAt(0) !== 127) {
            root.bubble.setDraft(root.bubble.draft + event.text);
            event.accepted = true;
        }
    }
    Accessible.role: Accessible.Pane
    Accessible.name: root.bubble.targetName

    InkCard {
        anchors.fill: parent
    }

    Column {
        id: column

        x: 14
        y: 14
        width: root.width - 28
        spacing: 10

        BubbleHeader {
            width: column.width
            bubble: root.bubble
            peek: root.peek
            onPeekToggled: root.peek = !root.peek
        }

        ContextChips {
            width: column.width
            visible: root.bubble.showsChips
            bubble: root.bubble
        }

        Loader {
            width: column.width
            active: root.bubble.showsResume
            visible: active
            Component.onCompleted: setSource("ResumeCard.qml", { "bubble": root.bubble })
        }

        Loader {
            width: column.width
            active: root.bubble.showsLearn
            visible: active
            Component.onCompleted: setSource("LearnSection.qml", { "bubble": root.bubble })
        }

        Row {
            visible: root.bubble.showsNotice
            width: column.width
            spacing: 6
            Glyph {
                name: "info.circle"
                color: Ink.secondary
            }
            Text {
                width: column.width - 20
                text: root.bubble.notice
                color: Ink.secondary
                font.pixelSize: 12
                wrapMode: Text.Wrap
                Accessible.role: Accessible.StaticText
                Accessible.name: text
                Accessible.ignored: !visible
            }
        }

        ApprovalCard {
            width: column.width
            visible: root.bubble.showsApproval
            label: root.bubble.approvalLabel
            irreversible: root.bubble.irreversible
            offersTrust: root.bubble.offersTrust
            summary: root.bubble.approvalSummary
            detail: root.bubble.approvalDetail
            onDecided: allow => root.bubble.decide(allow)
            onTrusted: root.bubble.trust()
        }

        Loader {
            width: column.width
            active: root.bubble.showsWorking
            visible: active
            Component.onCompleted: setSource("WorkingLine.qml", { "text": Qt.binding(() => root.bubble.workingText) })
        }

        AnswerCard {
            width: column.width
            visible: root.bubble.showsAnswer
            bubble: root.bubble
        }

        Rectangle {
            visible: root.bubble.showsError
            width: column.width
            height: errorText.implicitHeight + 20
            radius: 10
            color: Qt.rgba(1, 0.27, 0.23, 0.08)
            TextEdit {
                id: errorText

                x: 10
                y: 10
                width: parent.width - 20
                text: root.bubble.error
                readOnly: true
                selectByMouse: true
                wrapMode: TextEdit.Wrap
                color: Ink.red
                font.pixelSize: 13
                Accessible.role: Accessible.StaticText
                Accessible.name: "Error: " + text
                Accessible.ignored: !parent.visible
            }
        }

        AskSection {
            width: column.width
            visible: root.bubble.showsAsk
            bubble: root.bubble
            focus: true
        }

        Loader {
            width: column.width
            active: root.peek
            visible: active
            Component.onCompleted: setSource("TranscriptView.qml", { "text": Qt.binding(() => root.bubble.transcript) })
        }
    }
}
