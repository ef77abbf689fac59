import QtQuick
import Zorvane.Ui

// The offer to go on with the conversation of an earlier session on this target.
Rectangle {
    id: card

    required property BubbleAdapter bubble

    implicitHeight: content.implicitHeight + 20
    radius: 10
    color: Qt.rgba(0.94, 0.94, 0.94, 0.08)
    Accessible.role: Accessible.Grouping
    Accessible.name: "You've worked here before"
    Accessible.ignored: !card.visible
    onVisibleChanged: {
        if (card.visible)
            resume.forceActiveFocus()
    }

    Column {
        id: content

        x: 10
        y: 10
        width: card.width - 20
        spacing: 8

        Row {
            spacing: 5
            Glyph {
                name: "clock.arrow.circlepath"
                color: Ink.secondary
            }
            Text {
                text: "You've worked here before"
                color: Ink.secondary
                font.pixelSize: 12
                font.weight: Font.DemiBold
                Accessible.role: Accessible.StaticText
                Accessible.name: text
            }
        }

        Text {
            width: content.width
            text: card.bubble.resumeQuestion
            wrapMode: Text.Wrap
            color: Ink.text
            font.pixelSize: 14
            font.weight: Font.Medium
            Accessible.role: Accessible.StaticText
            Accessible.name: text
        }

        Rectangle {
            width: content.width
            height: asked.implicitHeight + 16
            radius: 8
            color: Qt.rgba(1, 1, 1, 0.05)
            Column {
                id: asked

                x: 8
                y: 8
                width: parent.width - 16
                spacing: 4
                Text {
                    width: asked.width
                    text: card.bubble.resumeAsked
                    wrapMode: Text.Wrap
                    maximumLineCount: 3
                    elide: Text.ElideRight
                    color: Ink.text
                    font.pixelSize: 13
                    Accessible.role: Accessible.StaticText
                    Accessible.name: text
                }
                Text {
                    width: asked.width
                    text: card.bubble.resumeAnswer
                    wrapMode: Text.Wrap
                    maximumLineCount: 3
                    elide: Text.ElideRight
                    color: Ink.secondary
                    font.pixelSize: 12
                    Accessible.role: Accessible.StaticText
                    Accessible.name: text
                }
            }
        }

        Row {
            width: content.width
            spacing: 8
            Text {
                anchors.verticalCenter: parent.verticalCenter
                width: content.width - fresh.width - resume.width - 16
                text: card.bubble.resumeTurns
                color: Ink.tertiary
                font.pixelSize: 11
                Accessible.role: Accessible.StaticText
                Accessible.name: text
            }
            InkButton {
                id: fresh

                text: "Start fresh"
                onClicked: card.bubble.resume(false)
            }
            InkPrimary {
                id: resume

                text: "Continue"
                onClicked: card.bubble.resume(true)
                Component.onCompleted: resume.forceActiveFocus()
            }
        }
    }
}
