import QtQuick
import Zorvane.Ui

// Learning a skill from a demonstration: watching, naming what was recorded, turning it
// into a skill, done.
Item {
    id: learn

    required property BubbleAdapter bubble
    readonly property string phase: learn.bubble.learnPhase

    implicitHeight: learn.phase === "recording" ? recording.implicitHeight + 20
                  : learn.phase === "naming" ? naming.implicitHeight + 20
                  : line.implicitHeight

    Rectangle {
        anchors.fill: parent
        visible: learn.phase === "recording" || learn.phase === "naming"
        radius: 10
        color: learn.phase === "recording" ? Qt.rgba(1, 0.27, 0.23, 0.08) : Qt.rgba(0.2, 0.84, 0.29, 0.07)
    }

    Column {
        id: recording

        visible: learn.phase === "recording"
        x: 10
        y: 10
        width: learn.width - 20
        spacing: 8

        Row {
            spacing: 6
            Rectangle {
                anchors.verticalCenter: parent.verticalCenter
                width: 8
                height: 8
                radius: 4
                color: Ink.red
            }
            Text {
                text: "Watching you"
                color: Ink.text
                font.pixelSize: 13
                font.weight: Font.DemiBold
                Accessible.role: Accessible.StaticText
                Accessible.name: text
            }
            Text {
                text: learn.bubble.learnSteps
                color: Ink.secondary
                font.pixelSize: 12
                Accessible.role: Accessible.StaticText
                Accessible.name: text
            }
        }
        Text {
            width: recording.width
            text: learn.bubble.learnHint
            wrapMode: Text.Wrap
            color: Ink.secondary
            font.pixelSize: 12
            Accessible.role: Accessible.StaticText
            Accessible.name: text
        }
        Row {
            spacing: 8
            InkButton {
                text: "Cancel"
                onClicked: learn.bubble.learnCancel()
            }
            InkPrimary {
                text: "Stop & save"
                tint: Ink.red
                onClicked: learn.bubble.learnStop()
            }
        }
    }

    Column {
        id: naming

        visible: learn.phase === "naming"
        x: 10
        y: 10
        width: learn.width - 20
        spacing: 8

        Row {
            spacing: 5
            Glyph {
                name: "checkmark.circle.fill"
                color: Ink.green
            }
            Text {
                text: learn.bubble.learnLabel
                color: Ink.green
                font.pixelSize: 12
                font.weight: Font.DemiBold
                Accessible.role: Accessible.StaticText
                Accessible.name: text
            }
        }
        InkField {
            id: skillName

            width: naming.width
            placeholderText: "Name it, e.g. Send WhatsApp message"
            onAccepted: learn.save()
        }
        InkField {
            id: skillPurpose

            width: naming.width
            placeholderText: "What is it for? (optional)"
            onAccepted: learn.save()
        }
        Row {
            spacing: 8
            InkButton {
                text: "Discard"
                onClicked: learn.bubble.learnCancel()
            }
            InkPrimary {
                text: "Learn it"
                onClicked: learn.save()
            }
        }
    }

    Row {
        id: line

        visible: learn.phase === "compiling" || learn.phase === "done"
        width: learn.width
        spacing: 5
        Glyph {
            name: learn.phase === "done" ? "checkmark.seal.fill" : "sparkles"
            color: Ink.purple
        }
        Text {
            width: line.width - 20
            text: learn.bubble.learnLabel
            wrapMode: Text.Wrap
            color: Ink.purple
            font.pixelSize: 12
            Accessible.role: Accessible.StaticText
            Accessible.name: text
        }
    }

    function save(): void {
        learn.bubble.learnSave(skillName.text, skillPurpose.text)
        skillName.clear()
        skillPurpose.clear()
    }
}
