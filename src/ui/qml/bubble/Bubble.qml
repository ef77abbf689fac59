import QtQuick
import Zorvane.Ui

// A piece's bubble, as the application puts it on the bubble's panel: the card, taking
// the keyboard focus of its window.
FocusScope {
    id: root

    required property BubbleAdapter bubble

    implicitWidth: card.width
    implicitHeight: card.implicitHeight
    width: card.width
    height: card.implicitHeight

    BubbleCard {
        id: card

        bubble: root.bubble
        focus: true
    }
}
