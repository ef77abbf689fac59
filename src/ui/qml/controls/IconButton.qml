import QtQuick
import QtQuick.Controls as QQC2
import QtQuick.Templates as T
import Zorvane.Ui

// A button that is only an icon; its help text is its accessible name and tooltip.
T.Button {
    id: control

    required property string glyphName
    required property string help

    implicitWidth: 22
    implicitHeight: 22
    activeFocusOnTab: true
    hoverEnabled: true
    Accessible.name: control.help
    Accessible.description: control.help
    Keys.onReturnPressed: control.clicked()
    Keys.onEnterPressed: control.clicked()
    QQC2.ToolTip.visible: control.hovered
    QQC2.ToolTip.delay: 600
    QQC2.ToolTip.text: control.help

    contentItem: Text {
        text: Ink.glyph(control.glyphName)
        color: control.hovered ? Ink.text : Ink.secondary
        font.pixelSize: 13
        horizontalAlignment: Text.AlignHCenter
        verticalAlignment: Text.AlignVCenter
        Accessible.ignored: true
    }

    background: Rectangle {
        radius: 6
        color: control.hovered ? Ink.cardHover : "transparent"
        border.color: control.visualFocus ? Ink.blue : "transparent"
        border.width: control.visualFocus ? 2 : 0
    }
}
