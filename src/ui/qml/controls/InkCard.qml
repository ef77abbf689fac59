import QtQuick
import Zorvane.Ui

// The dark rounded ground of a card.
Rectangle {
    radius: 18
    color: Ink.surface
    border.color: Ink.hairline
    border.width: 1
    Accessible.ignored: true
}
