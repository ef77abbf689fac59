import QtQuick
import Zorvane.Ui

// An act waiting for the user's word: what kind of act, what it does, what will really
// run, and Deny / Allow (and, for clicks and typing, Allow all for this piece). The card
// itself takes the keyboard focus when it shows, not Allow: a Return meant for the ask
// field, typed as the card appears, must not allow anything. Tab reaches Allow, then
// Allow all and Deny; Escape is left to the card around it.
Rectangle {
    id: card

    required property string label
    required property bool irreversible
    required property bool offersTrust
    required property string summary
    required property string detail
    property bool showsDetail: false

    signal decided(bool allow)
    signal trusted

    implicitHeight: content.implicitHeight + 20
    radius: 10
    color: Qt.rgba(1, 0.62, 0.04, 0.10)
    Accessible.role: Accessible.AlertMessage
    Accessible.name: card.label + ": " + card.summary
    Accessible.ignored: !card.visible
    Component.onCompleted: {
        if (card.visible)
            card.forceActiveFocus()
    }
    onVisibleChanged: {
        if (card.visible)
            card.forceActiveFocus()
    }
    // Return and Enter on the card itself do nothing, and go no further. Tab from the card
    // goes to Allow, Shift+Tab to Deny (the card's own place in the chain would lead back
    // to the top of the bubble).
    Keys.onReturnPressed: {}
    Keys.onEnterPressed: {}
    Keys.onTabPressed: event => {
        if (card.Window.activeFocusItem === card)
            allow.forceActiveFocus(Qt.TabFocusReason);
        else
            event.accepted = false;
    }
    Keys.onBacktabPressed: event => {
        if (card.Window.activeFocusItem === card)
            deny.forceActiveFocus(Qt.BacktabFocusReason);
        else
            event.accepted = false;
    }

    Column {
        id: content

        x: 10
        y: 10
        width: card.width - 20
        spacing: 8

        Row {
            spacing: 5
            Glyph {
                name: card.irreversible ? "exclamationmark.triangle.fill" : "hand.raised.fill"
                color: Ink.orange
            }
            Text {
                text: card.label
                color: Ink.orange
                font.pixelSize: 12
                font.weight: Font.DemiBold
                Accessible.role: Accessible.StaticText
                Accessible.name: text
            }
        }

        Text {
            width: content.width
            text: card.summary
            textFormat: Text.PlainText
            wrapMode: Text.Wrap
            color: Ink.text
            font.pixelSize: 13
            Accessible.role: Accessible.StaticText
            Accessible.name: text
        }

        InkChip {
            visible: card.detail !== ""
            text: card.showsDetail ? "Hide details" : "Details"
            textSize: 11
            fill: "transparent"
            leftPadding: 0
            Accessible.role: Accessible.Button
            Accessible.description: card.showsDetail ? "expanded" : "collapsed"
            onClicked: card.showsDetail = !card.showsDetail
        }

        TextEdit {
            visible: card.showsDetail && card.detail !== ""
            width: content.width
            text: card.detail
            textFormat: TextEdit.PlainText
            readOnly: true
            selectByMouse: true
            wrapMode: TextEdit.WrapAnywhere
            color: Ink.secondary
            font.family: Ink.mono
            font.pixelSize: 10
            Accessible.role: Accessible.StaticText
            Accessible.name: text
            Accessible.ignored: !visible
        }

        Flow {
            width: content.width
            spacing: 6
            layoutDirection: Qt.RightToLeft

            InkPrimary {
                id: allow

                text: "Allow"
                onClicked: card.decided(true)
            }
            InkButton {
                visible: card.offersTrust
                text: "Allow all for this piece"
                Accessible.description: "Clicks and typing won't ask again; irreversible actions still will"
                onClicked: card.trusted()
            }
            InkButton {
                id: deny

                text: "Deny"
                onClicked: card.decided(false)
            }
        }
    }
}
