import QtQuick
import QtQuick.Controls as QQC2
import Zorvane.Ui

// What the agent is doing, with 0 to 3 dots that step every 0.4 s.
Row {
    id: line

    required property string text
    property int dots: 0

    spacing: 8
    Accessible.role: Accessible.StaticText
    Accessible.name: line.text
    Accessible.ignored: !line.visible

    QQC2.BusyIndicator {
        width: 16
        height: 16
        running: line.visible
        Accessible.ignored: true
    }

    Text {
        width: line.width - 24
        text: line.text + ".".repeat(line.dots)
        elide: Text.ElideRight
        color: Ink.secondary
        font.pixelSize: 13
        Accessible.ignored: true
    }

    Timer {
        interval: 400
        repeat: true
        running: line.visible
        triggeredOnStart: true
        onTriggered: line.dots = Math.floor(Date.now() / 400) % 4
    }
}
