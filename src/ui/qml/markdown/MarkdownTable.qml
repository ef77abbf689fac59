pragma ComponentBehavior: Bound
import QtQuick
import Zorvane.Ui

// A table: the header row in semibold over a hairline, then the rows; every column the
// same width, cells top-left.
Rectangle {
    id: block

    required property list<string> cells
    required property int columns
    required property string plain
    property int textSize: 13
    readonly property int columnCount: Math.max(1, block.columns)
    readonly property real cellWidth: (block.width - 20 - 14 * (block.columnCount - 1)) / block.columnCount

    implicitHeight: content.implicitHeight + 20
    radius: 10
    color: Ink.card
    Accessible.role: Accessible.Table
    Accessible.name: block.plain

    component Cells: Grid {
        id: cells

        required property list<string> texts
        required property bool header

        columns: block.columnCount
        columnSpacing: 14
        rowSpacing: 6

        Repeater {
            model: cells.texts
            delegate: Text {
                required property string modelData

                width: block.cellWidth
                text: modelData
                textFormat: Text.RichText
                wrapMode: Text.Wrap
                color: Ink.text
                font.pixelSize: block.textSize
                font.weight: cells.header ? Font.DemiBold : Font.Normal
                Accessible.ignored: true
            }
        }
    }

    Column {
        id: content

        x: 10
        y: 10
        width: block.width - 20
        spacing: 6

        Cells {
            texts: block.cells.slice(0, block.columnCount)
            header: true
        }
        Rectangle {
            width: content.width
            height: 1
            color: Ink.hairline
        }
        Cells {
            texts: block.cells.slice(block.columnCount)
            header: false
        }
    }
}
