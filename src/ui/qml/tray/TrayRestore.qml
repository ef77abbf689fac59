pragma ComponentBehavior: Bound
import QtQuick
import Zorvane.Ui

// The offer to bring back the pieces that were open when Zorvane last closed: how many,
// the first names, how many more, and the two answers.
FocusScope {
    id: offer

    required property TrayAdapter tray

    implicitHeight: content.implicitHeight
    Accessible.role: Accessible.Grouping
    Accessible.name: offer.tray.restoreHeading

    Column {
        id: content

        width: offer.width
        spacing: 6

        Row {
            spacing: 6

            Glyph {
                name: offer.tray.restoreImage
                color: Ink.purple
            }
            Text {
                width: content.width - 20
                text: offer.tray.restoreHeading
                wrapMode: Text.Wrap
                color: Ink.text
                font.pixelSize: 13
                font.weight: Font.DemiBold
                Accessible.role: Accessible.StaticText
                Accessible.name: text
            }
        }

        Column {
            x: 20
            width: content.width - 20
            spacing: 2

            Repeater {
                model: offer.tray.restoreNames
                delegate: Text {
                    required property string modelData

                    width: content.width - 20
                    text: modelData
                    elide: Text.ElideMiddle
                    maximumLineCount: 1
                    color: Ink.secondary
                    font.pixelSize: 12
                    Accessible.role: Accessible.StaticText
                    Accessible.name: text
                }
            }

            Text {
                visible: offer.tray.restoreMore !== ""
                text: offer.tray.restoreMore
                color: Ink.tertiary
                font.pixelSize: 12
                Accessible.role: Accessible.StaticText
                Accessible.name: text
                Accessible.ignored: !visible
            }
        }

        Item {
            width: content.width
            height: bring.implicitHeight + 4

            Row {
                anchors.right: parent.right
                anchors.bottom: parent.bottom
                spacing: 8

                InkButton {
                    text: offer.tray.dismissTitle
                    enabled: !offer.tray.restoring
                    onClicked: offer.tray.dismissRestore()
                }
                InkPrimary {
                    id: bring

                    text: offer.tray.restoreTitle
                    enabled: !offer.tray.restoring
                    focus: true
                    onClicked: offer.tray.restoreAll()
                }
            }
        }
    }
}
