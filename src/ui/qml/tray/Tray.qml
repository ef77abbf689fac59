import QtQuick
import Zorvane.Ui

// The tray under the goo, as the application puts it on the tray's panel: the card at
// its own size, taking the focus of its window.
FocusScope {
    id: root

    required property TrayAdapter tray

    width: card.width
    height: card.height
    Accessible.role: Accessible.Pane
    Accessible.name: "Zorvane tray"

    TrayCard {
        id: card

        tray: root.tray
        focus: true
    }
}
