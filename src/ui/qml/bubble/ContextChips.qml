pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls as QQC2
import Zorvane.Ui

// What else the piece works on: attached things, then linked pieces.
Flow {
    id: chips

    required property BubbleAdapter bubble

    spacing: 4

    Repeater {
        model: chips.bubble.attached
        delegate: Label {
            glyphName: "link"
            fill: Qt.rgba(1, 1, 1, 0.1)
        }
    }

    Repeater {
        model: chips.bubble.links
        delegate: Label {
            glyphName: "point.3.connected.trianglepath.dotted"
            fill: Qt.rgba(0.75, 0.35, 0.95, 0.15)
            help: "Linked agent: they can ask each other for help"
        }
    }

    component Label: Rectangle {
        id: label

        required property string modelData
        property string glyphName
        property color fill
        property string help: ""

        width: Math.min(chips.width, content.implicitWidth + 12)
        height: content.implicitHeight + 4
        radius: height / 2
        color: label.fill
        Accessible.role: Accessible.StaticText
        Accessible.name: label.modelData
        Accessible.description: label.help
        QQC2.ToolTip.visible: label.help !== "" && hoverHandler.hovered
        QQC2.ToolTip.text: label.help

        HoverHandler {
            id: hoverHandler
        }

        Row {
            id: content

            x: 6
            y: 2
            spacing: 4
            Glyph {
                name: label.glyphName
                font.pixelSize: 10
            }
            Text {
                width: Math.min(implicitWidth, chips.width - 32)
                text: label.modelData
                elide: Text.ElideMiddle
                color: Ink.text
                font.pixelSize: 11
                Accessible.ignored: true
            }
        }
    }
}
