import QtQuick
import QtQuick.Templates as T
import Zorvane.Ui

// One live piece: its dot, its kind's image, its name and what it is doing. A click,
// Return or Space brings the piece forward.
T.AbstractButton {
    id: control

    required property int index
    required property string pieceName
    required property string caption
    required property string image
    required property string dot

    signal activated(int row)

    implicitHeight: 28
    leftPadding: 6
    rightPadding: 8
    activeFocusOnTab: true
    hoverEnabled: true
    Accessible.role: Accessible.Button
    Accessible.name: control.caption === "" ? control.pieceName : control.pieceName + ", " + control.caption
    Accessible.description: "Show this piece"
    Accessible.onPressAction: control.activated(control.index)
    Keys.onReturnPressed: control.activated(control.index)
    Keys.onEnterPressed: control.activated(control.index)
    onClicked: control.activated(control.index)

    TextMetrics {
        id: captionMetrics

        font.pixelSize: 11
        text: control.caption
    }

    contentItem: Row {
        spacing: 8

        Rectangle {
            anchors.verticalCenter: parent.verticalCenter
            width: 7
            height: 7
            radius: 3.5
            color: control.dot === "orange" ? Ink.orange : control.dot === "blue" ? Ink.blue : Ink.green
            Accessible.ignored: true
        }
        Glyph {
            anchors.verticalCenter: parent.verticalCenter
            width: 14
            horizontalAlignment: Text.AlignHCenter
            name: control.image
            color: Ink.secondary
        }
        Text {
            anchors.verticalCenter: parent.verticalCenter
            width: control.availableWidth - 7 - 14 - 3 * 8 - captionMetrics.advanceWidth
            text: control.pieceName
            elide: Text.ElideMiddle
            maximumLineCount: 1
            color: Ink.text
            font.pixelSize: 13
            Accessible.ignored: true
        }
        Text {
            anchors.verticalCenter: parent.verticalCenter
            text: control.caption
            color: control.dot === "orange" ? Ink.orange : Ink.tertiary
            font.pixelSize: 11
            Accessible.ignored: true
        }
    }

    background: Rectangle {
        radius: 8
        color: control.hovered || control.down ? Ink.cardHover : "transparent"
        border.color: control.visualFocus ? Ink.blue : "transparent"
        border.width: control.visualFocus ? 2 : 0
    }
}
