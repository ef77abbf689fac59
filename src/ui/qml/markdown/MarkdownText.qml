import QtQuick
import Zorvane.Ui

// A heading or a paragraph: inline rich text, selectable.
TextEdit {
    id: block

    required property string kind
    required property string html
    required property string plain
    required property int level
    property int textSize: 13

    topPadding: block.kind === "heading" ? 2 : 0
    text: block.html
    textFormat: TextEdit.RichText
    readOnly: true
    selectByMouse: true
    wrapMode: TextEdit.Wrap
    color: Ink.text
    font.pixelSize: block.kind !== "heading" ? block.textSize
                  : block.textSize + (block.level === 1 ? 5 : block.level === 2 ? 3 : 1)
    font.weight: block.kind === "heading" ? Font.DemiBold : Font.Normal
    Accessible.role: block.kind === "heading" ? Accessible.Heading : Accessible.Paragraph
    Accessible.name: block.plain
}
