import QtQuick
import QtQuick.Templates as T
import Zorvane.Ui

// A capsule button with one line of text, cut at its end when too long; the whole text
// stays its accessible name and tooltip.
T.Button {
    id: control

    property color fill: Ink.card
    property string glyphName: ""
    property int textSize: 13
    property real maximumWidth: 320

    implicitWidth: Math.min(control.maximumWidth, implicitContentWidth + leftPadding + rightPadding)
    implicitHeight: implicitContentHeight + topPadding + bottomPadding
    leftPadding: 10
    rightPadding: 10
    topPadding: 5
    bottomPadding: 5
    activeFocusOnTab: true
    hoverEnabled: true
    Accessible.name: control.text
    Keys.onReturnPressed: control.clicked()
    Keys.onEnterPressed: control.clicked()

    contentItem: Row {
        spacing: 5
        Text {
            visible: control.glyphName !== ""
            text: Ink.glyph(control.glyphName)
            color: Ink.text
            font.pixelSize: control.textSize
            Accessible.ignored: true
        }
        Text {
            width: Math.min(implicitWidth, control.maximumWidth - control.leftPadding - control.rightPadding
                            - (control.glyphName !== "" ? control.textSize + 5 : 0))
            text: control.text
            elide: Text.ElideRight
            maximumLineCount: 1
            color: Ink.text
            font.pixelSize: control.textSize
            Accessible.ignored: true
        }
    }

    background: Rectangle {
        radius: height / 2
        color: control.hovered ? Qt.lighter(control.fill, 1.4) : control.fill
        border.color: control.visualFocus ? Ink.accent : "transparent"
        border.width: control.visualFocus ? 2 : 0
    }
}
