import QtQuick
import Zorvane.Ui

// The tray's card: the pieces on screen, the offer to bring back the last run's pieces
// and a message, over the goo's card; a small pill while there is none of these. The
// goo's stem takes the top `inset` points. The panel is sized to what it asks for.
FocusScope {
    id: root

    required property TrayAdapter tray
    readonly property real inset: root.tray.hasContent ? 20 : 12

    function report(): void {
        root.tray.setContentSize(root.implicitWidth, root.implicitHeight)
    }

    width: root.implicitWidth
    height: root.implicitHeight
    implicitWidth: root.tray.hasContent ? Math.max(320, root.tray.notchWidth + 40)
                                        : Math.max(pill.implicitWidth + 36, root.tray.notchWidth)
    implicitHeight: root.inset + (root.tray.hasContent ? column.implicitHeight + 24 : pill.implicitHeight + 18)
    onImplicitWidthChanged: root.report()
    onImplicitHeightChanged: root.report()
    Component.onCompleted: root.report()

    Row {
        id: pill

        anchors.horizontalCenter: parent.horizontalCenter
        y: root.inset + 9
        visible: !root.tray.hasContent
        spacing: 6

        Glyph {
            name: root.tray.emptyImage
            color: Ink.secondary
        }
        Text {
            text: root.tray.emptyText
            color: Ink.secondary
            font.pixelSize: 12
            Accessible.role: Accessible.StaticText
            Accessible.name: text
            Accessible.ignored: !pill.visible
        }
    }

    Column {
        id: column

        x: 14
        y: root.inset + 12
        width: root.width - 28
        visible: root.tray.hasContent
        spacing: 10

        TrayLive {
            width: column.width
            visible: root.tray.showsLive
            tray: root.tray
        }

        Rectangle {
            visible: root.tray.showsLive && root.tray.showsRestore
            width: column.width
            height: 1
            color: Ink.hairline
            Accessible.ignored: true
        }

        TrayRestore {
            width: column.width
            visible: root.tray.showsRestore
            tray: root.tray
            focus: true
        }

        Rectangle {
            visible: root.tray.showsMessage && (root.tray.showsLive || root.tray.showsRestore)
            width: column.width
            height: 1
            color: Ink.hairline
            Accessible.ignored: true
        }

        Row {
            visible: root.tray.showsMessage
            width: column.width
            spacing: 6

            Glyph {
                name: "info.circle"
                color: Ink.secondary
            }
            Text {
                width: column.width - 20
                text: root.tray.message
                color: Ink.text
                font.pixelSize: 12
                wrapMode: Text.Wrap
                Accessible.role: Accessible.StaticText
                Accessible.name: text
                Accessible.ignored: !parent.visible
            }
        }
    }
}
