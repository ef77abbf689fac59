pragma ComponentBehavior: Bound
import QtQuick
import Zorvane.Ui

// A bulleted or numbered list; numbers in figures of one width.
Column {
    id: block

    required property string kind
    required property list<string> items
    required property string plain
    property int textSize: 13

    spacing: 4
    Accessible.role: Accessible.List
    Accessible.name: block.plain

    Repeater {
        model: block.items
        delegate: Row {
            id: item

            required property string modelData
            required property int index

            width: block.width
            spacing: 6

            Text {
                id: marker

                width: block.kind === "numbered" ? block.textSize * 1.6 : block.textSize * 0.8
                text: block.kind === "numbered" ? (item.index + 1) + "." : "\u2022"
                horizontalAlignment: Text.AlignRight
                color: block.kind === "numbered" ? Ink.secondary : Ink.text
                font.pixelSize: block.textSize
                Accessible.ignored: true
            }
            TextEdit {
                width: block.width - marker.width - 6
                text: item.modelData
                textFormat: TextEdit.RichText
                readOnly: true
                selectByMouse: true
                wrapMode: TextEdit.Wrap
                color: Ink.text
                font.pixelSize: block.textSize
                Accessible.ignored: true
            }
        }
    }
}
