import QtQuick
import Zorvane.Ui

// The agent the guide found, or looks for: its name, what to do next, the install line
// to copy when it is missing, "Check again", and the other agents found.
Rectangle {
    id: card

    required property OnboardingAdapter guide

    implicitHeight: content.implicitHeight + 24
    radius: 12
    color: Ink.card
    Accessible.role: Accessible.Grouping
    Accessible.name: card.guide.agentTitle

    Column {
        id: content

        x: 12
        y: 12
        width: card.width - 24
        spacing: 8

        Row {
            width: content.width
            spacing: 8

            Glyph {
                name: card.guide.agentState === "ready" ? "checkmark.circle.fill"
                    : card.guide.agentState === "looking" ? "circle.dashed" : "exclamationmark.triangle.fill"
                color: card.guide.agentState === "ready" ? Ink.green
                    : card.guide.agentState === "looking" ? Ink.secondary : Ink.orange
                font.pixelSize: 14
            }
            Text {
                width: content.width - 22
                text: card.guide.agentTitle
                wrapMode: Text.Wrap
                color: Ink.text
                font.pixelSize: 14
                font.weight: Font.DemiBold
                Accessible.role: Accessible.StaticText
                Accessible.name: text
            }
        }

        Text {
            visible: card.guide.agentText !== ""
            width: content.width
            text: card.guide.agentText
            textFormat: Text.MarkdownText
            wrapMode: Text.Wrap
            color: Ink.secondary
            font.pixelSize: 12
            Accessible.role: Accessible.StaticText
            Accessible.name: card.guide.agentText.split("`").join("")
            Accessible.ignored: !visible
        }

        Row {
            visible: card.guide.copyText !== ""
            width: content.width
            spacing: 8

            Rectangle {
                width: content.width - copy.width - 8
                height: copy.height
                radius: 6
                color: Qt.rgba(0, 0, 0, 0.35)
                Text {
                    anchors.fill: parent
                    anchors.leftMargin: 8
                    anchors.rightMargin: 8
                    verticalAlignment: Text.AlignVCenter
                    text: card.guide.copyText
                    elide: Text.ElideRight
                    color: Ink.text
                    font.family: Ink.mono
                    font.pixelSize: 11
                    Accessible.role: Accessible.StaticText
                    Accessible.name: text
                    Accessible.ignored: !parent.parent.visible
                }
            }
            InkButton {
                id: copy

                text: "Copy"
                Accessible.description: "Copy the install command"
                onClicked: card.guide.copyInstall()
            }
        }

        InkButton {
            visible: card.guide.showsCheckAgain
            text: "Check again"
            onClicked: card.guide.recheck()
        }

        Text {
            visible: card.guide.alsoFound !== ""
            width: content.width
            text: card.guide.alsoFound
            wrapMode: Text.Wrap
            color: Ink.tertiary
            font.pixelSize: 11
            Accessible.role: Accessible.StaticText
            Accessible.name: text
            Accessible.ignored: !visible
        }
    }
}
