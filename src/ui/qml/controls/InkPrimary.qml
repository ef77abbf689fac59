import QtQuick
import QtQuick.Templates as T
import Zorvane.Ui

// The card's main action: light on dark, or coloured when `tint` is set.
T.Button {
    id: control

    property color tint: Ink.accent

    implicitWidth: implicitContentWidth + leftPadding + rightPadding
    implicitHeight: implicitContentHeight + topPadding + bottomPadding
    leftPadding: 14
    rightPadding: 14
    topPadding: 6
    bottomPadding: 6
    activeFocusOnTab: true
    hoverEnabled: true
    Accessible.name: control.text
    Keys.onReturnPressed: control.clicked()
    Keys.onEnterPressed: control.clicked()

    contentItem: Text {
        text: control.text
        color: control.tint === Ink.accent ? "black" : "white"
        font.pixelSize: 13
        font.weight: Font.DemiBold
        horizontalAlignment: Text.AlignHCenter
        Accessible.ignored: true
    }

    background: Rectangle {
        radius: 8
        color: control.down ? Qt.darker(control.tint, 1.2) : control.tint
        opacity: control.enabled ? 1 : 0.4
        border.color: control.visualFocus ? Ink.blue : "transparent"
        border.width: control.visualFocus ? 2 : 0
    }
}
