pragma ComponentBehavior: Bound
import QtQuick
import Zorvane.Ui

// The last answer: the question it answers, the Markdown (no taller than 300 points,
// scrolled beyond), and a chip for each source it cites; a chip flares the tentacle to
// that source.
Column {
    id: answer

    required property BubbleAdapter bubble

    spacing: 6

    Text {
        visible: answer.bubble.questionLine !== ""
        width: answer.width
        text: answer.bubble.questionLine
        textFormat: Text.PlainText
        elide: Text.ElideRight
        maximumLineCount: 2
        wrapMode: Text.Wrap
        color: Ink.secondary
        font.pixelSize: 12
        Accessible.role: Accessible.StaticText
        Accessible.name: text
        Accessible.ignored: !visible
    }

    Rectangle {
        width: answer.width
        height: Math.min(300, markdown.contentHeight) + 24
        radius: 12
        color: Ink.card
        border.color: Ink.hairline
        border.width: 1

        MarkdownView {
            id: markdown

            x: 12
            y: 12
            width: parent.width - 24
            height: parent.height - 24
            blocks: answer.bubble.answer
            textSize: 13
            Accessible.name: answer.bubble.answerText
        }
    }

    Flow {
        visible: answer.bubble.citations.length > 0
        width: answer.width
        spacing: 4

        Repeater {
            model: answer.bubble.citations
            delegate: InkChip {
                required property string modelData
                required property int index

                text: modelData
                glyphName: "doc.text"
                textSize: 11
                leftPadding: 8
                rightPadding: 8
                topPadding: 3
                bottomPadding: 3
                maximumWidth: answer.width
                fill: Qt.rgba(0.94, 0.94, 0.94, 0.16)
                Accessible.description: "Show this source"
                onClicked: answer.bubble.cite(index)
            }
        }
    }
}
