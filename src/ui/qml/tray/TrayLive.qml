pragma ComponentBehavior: Bound
import QtQuick
import Zorvane.Ui

// "ON SCREEN" and a row for each live piece, in the tray's order.
Column {
    id: live

    required property TrayAdapter tray

    spacing: 2

    Text {
        leftPadding: 6
        bottomPadding: 2
        text: live.tray.liveHeading
        color: Ink.tertiary
        font.pixelSize: 10
        font.weight: Font.DemiBold
        font.letterSpacing: 0.8
        Accessible.role: Accessible.Heading
        Accessible.name: text
    }

    Repeater {
        model: live.tray.live
        delegate: TrayLiveRow {
            width: live.width
            onActivated: row => live.tray.focusPiece(row)
        }
    }
}
