import QtQuick
import Zorvane.Ui

// A small icon, drawn from the type's symbols; decoration only.
Text {
    id: glyph

    required property string name

    text: Ink.glyph(glyph.name)
    color: Ink.text
    font.pixelSize: 12
    Accessible.ignored: true
}
