import QtQuick
import QtQuick.Templates as T
import Zorvane.Ui

// A secondary action: text on the card's faint ground.
T.Button {
    id: control

    implicitWidth: implicitContentWidth + leftPadding + rightPadding
    implicitHeight: implicitContentHeight + topPadding + bottomPadding
    leftPadding: 12
    rightPadding: 12
    topPadding: 6
    bottomPadding: 6
    activeFocusOnTab: true
    hoverEnabled: true
    Accessible.name: control.text
    Keys.onReturnPressed: control.clicked()
    Keys.onEnterPressed: control.clicked()

    contentItem: Text {
        text: control.text
        color: Ink.text
        font.pixelSize: 13
        horizontalAlignment: Text.AlignHCenter
        Accessible.ignored: true
    }

    background: Rectangle {
        radius: 8
        color: control.hovered || control.down ? Ink.cardHover : Ink.card
        border.color: control.visualFocus ? Ink.blue : "transparent"
        border.width: control.visualFocus ? 2 : 0
    }
}
