import QtQuick
import Zorvane.Ui

// A code block: the text as written, monospaced, scrolled sideways when too wide.
Rectangle {
    id: block

    required property string code

    implicitHeight: text.implicitHeight + 20
    radius: 8
    color: Qt.rgba(1, 1, 1, 0.05)
    Accessible.role: Accessible.StaticText
    Accessible.name: block.code

    Flickable {
        x: 10
        y: 10
        width: block.width - 20
        height: text.implicitHeight
        contentWidth: text.implicitWidth
        flickableDirection: Flickable.HorizontalFlick
        boundsBehavior: Flickable.StopAtBounds
        clip: contentWidth > width

        TextEdit {
            id: text

            text: block.code
            textFormat: TextEdit.PlainText
            readOnly: true
            selectByMouse: true
            color: Ink.text
            font.family: Ink.mono
            font.pixelSize: 12
            Accessible.ignored: true
        }
    }
}
