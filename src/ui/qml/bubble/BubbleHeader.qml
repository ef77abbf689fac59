pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls as QQC2
import Zorvane.Ui

// The bubble's top row: the mood dot, the target's name, the agent and the piece's tools.
Item {
    id: header

    required property BubbleAdapter bubble
    required property bool peek

    signal peekToggled

    implicitHeight: 24

    Rectangle {
        id: dot

        anchors.verticalCenter: parent.verticalCenter
        width: 7
        height: 7
        radius: 3.5
        color: Ink.moodColor(header.bubble.mood)
        Accessible.ignored: true
    }

    Text {
        id: name

        anchors.left: dot.right
        anchors.leftMargin: 7
        anchors.right: tools.left
        anchors.rightMargin: 6
        anchors.verticalCenter: parent.verticalCenter
        text: header.bubble.targetName
        elide: Text.ElideMiddle
        maximumLineCount: 1
        color: Ink.text
        font.pixelSize: 13
        font.weight: Font.DemiBold
        Accessible.role: Accessible.Heading
        Accessible.name: text
    }

    Row {
        id: tools

        anchors.right: parent.right
        anchors.verticalCenter: parent.verticalCenter
        spacing: 2

        InkChip {
            id: agentButton

            anchors.verticalCenter: parent.verticalCenter
            text: header.bubble.agentName
            textSize: 10
            leftPadding: 7
            rightPadding: 7
            topPadding: 2
            bottomPadding: 2
            maximumWidth: 110
            Accessible.description: "Which agent this piece uses"
            QQC2.ToolTip.visible: hovered
            QQC2.ToolTip.delay: 600
            QQC2.ToolTip.text: "Which agent this piece uses"
            onClicked: agentMenu.popup(agentButton, 0, agentButton.height)

            QQC2.Menu {
                id: agentMenu

                Repeater {
                    model: header.bubble.agentNames
                    delegate: QQC2.MenuItem {
                        required property string modelData
                        required property int index

                        text: modelData
                        onTriggered: header.bubble.switchAgent(index)
                    }
                }
            }
        }

        IconButton {
            visible: header.bubble.showsLearnButton
            glyphName: "record.circle"
            help: "Learn: do a task yourself in this window and Zorvane turns it into a reusable skill"
            onClicked: header.bubble.learnStart()
        }

        IconButton {
            id: attachButton

            glyphName: "plus.circle"
            help: "Attach more context"
            onClicked: attachMenu.popup(attachButton, 0, attachButton.height)

            QQC2.Menu {
                id: attachMenu

                QQC2.MenuItem {
                    text: "Attach files or folders\u2026"
                    onTriggered: header.bubble.attachFiles()
                }
                QQC2.MenuItem {
                    text: "Attach a window (click it)\u2026"
                    onTriggered: header.bubble.pickWindow()
                }
            }
        }

        IconButton {
            glyphName: "terminal"
            help: "Peek at the raw transcript"
            checkable: true
            checked: header.peek
            onClicked: header.peekToggled()
        }

        IconButton {
            glyphName: "xmark"
            help: "Retire this piece"
            onClicked: header.bubble.retire()
        }
    }
}
