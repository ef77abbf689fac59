import QtQuick
import QtQuick.Controls as QQC2

// A text field on a dark card: light text on a faint fill with a hairline edge. Its
// placeholder is also its accessible name.
QQC2.TextField {
    color: Ink.text
    placeholderTextColor: Ink.tertiary
    font.pixelSize: 13
    selectByMouse: true
    Accessible.name: placeholderText
    background: Rectangle {
        radius: 8
        color: Qt.rgba(1, 1, 1, 0.08)
        border.color: Ink.hairline
        border.width: 1
    }
}
