import QtQuick
import Zorvane.Ui

// A quotation: a bar, then the text in the secondary colour.
Row {
    id: block

    required property string html
    required property string plain
    property int textSize: 13

    spacing: 8
    Accessible.role: Accessible.Paragraph
    Accessible.name: block.plain

    Rectangle {
        width: 3
        height: quote.implicitHeight
        radius: 1.5
        color: Ink.hairline
    }
    TextEdit {
        id: quote

        width: block.width - 11
        text: block.html
        textFormat: TextEdit.RichText
        readOnly: true
        selectByMouse: true
        wrapMode: TextEdit.Wrap
        color: Ink.secondary
        font.pixelSize: block.textSize
        Accessible.ignored: true
    }
}
