import QtQuick
import QtQuick.Controls as QQC2
import Zorvane.Ui

// The agent's raw lines, the last sixty, for a look under the hood.
Rectangle {
    id: transcript

    required property string text

    implicitHeight: 160
    radius: 8
    color: Qt.rgba(0, 0, 0, 0.05)
    border.color: Ink.hairline
    border.width: 1

    QQC2.ScrollView {
        anchors.fill: parent
        anchors.margins: 6
        clip: true

        TextEdit {
            width: transcript.width - 12
            text: transcript.text
            textFormat: TextEdit.PlainText
            readOnly: true
            selectByMouse: true
            wrapMode: TextEdit.WrapAnywhere
            color: Ink.secondary
            font.family: Ink.mono
            font.pixelSize: 9
            Accessible.role: Accessible.StaticText
            Accessible.name: "Raw transcript"
            Accessible.description: text
        }
    }
}
