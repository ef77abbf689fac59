pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls as QQC2
import Zorvane.Ui

// Where the user tells the piece what to do: learned skills, suggestions, and the field
// (Return sends what is typed; an empty field sends nothing).
FocusScope {
    id: section

    required property BubbleAdapter bubble

    implicitHeight: content.implicitHeight
    onVisibleChanged: {
        if (!section.visible)
            return;
        field.forceActiveFocus();
        field.cursorPosition = field.length; // after what was typed while it was hidden
    }

    Column {
        id: content

        width: section.width
        spacing: 8

        Text {
            visible: section.bubble.showsAskHeading
            text: "What should I do?"
            color: Ink.text
            font.pixelSize: 15
            font.weight: Font.Medium
            Accessible.role: Accessible.Heading
            Accessible.name: text
            Accessible.ignored: !visible
        }

        Flow {
            visible: section.bubble.skillNames.length > 0
            width: content.width
            spacing: 6
            Repeater {
                model: section.bubble.skillNames
                delegate: InkChip {
                    required property string modelData
                    required property int index

                    text: modelData
                    glyphName: "play.fill"
                    fill: Qt.rgba(0.94, 0.94, 0.94, 0.16)
                    maximumWidth: content.width
                    Accessible.description: section.bubble.skillHelps[index] ?? ""
                    QQC2.ToolTip.visible: hovered
                    QQC2.ToolTip.delay: 600
                    QQC2.ToolTip.text: section.bubble.skillHelps[index] ?? ""
                    onClicked: {
                        section.bubble.armSkill(index)
                        field.forceActiveFocus()
                    }
                }
            }
        }

        Flow {
            width: content.width
            spacing: 6
            Repeater {
                model: section.bubble.suggestions
                delegate: InkChip {
                    required property string modelData

                    text: modelData
                    maximumWidth: content.width
                    onClicked: section.bubble.ask(modelData)
                }
            }
        }

        InkField {
            id: field

            width: content.width
            focus: true
            text: section.bubble.draft
            placeholderText: section.bubble.askPrompt
            onTextEdited: section.bubble.setDraft(field.text)
            onAccepted: section.bubble.submit()
        }
    }
}
