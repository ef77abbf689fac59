import QtQuick
import QtQuick.Window
import QtTest
import Zorvane.Ui

// The approval card by class: which buttons it offers, what they answer, and that Allow
// and Deny are reachable from the keyboard.
TestCase {
    id: test

    name: "ApprovalCard"
    when: windowShown
    width: 400
    height: 300

    Window {
        id: window

        width: 400
        height: 300
        visible: true
    }

    function initTestCase(): void {
        window.requestActivate()
        tryVerify(() => window.active)
    }

    Component {
        id: cardComponent

        ApprovalCard {
            width: 360
            label: "Needs your OK"
            irreversible: false
            offersTrust: true
            summary: "Click “Send” in Mail"
            detail: "click at (120, 40)"
        }
    }

    SignalSpy {
        id: decided

        signalName: "decided"
    }

    SignalSpy {
        id: trusted

        signalName: "trusted"
    }

    function init(): void {
        failOnWarning(/.?/)
        decided.clear()
        trusted.clear()
    }

    function buttonNamed(item: Item, text: string): Item {
        for (let i = 0; i < item.children.length; ++i) {
            const child = item.children[i]
            if (child.text === text && child.visible && child.clicked !== undefined)
                return child
            const found = buttonNamed(child, text)
            if (found)
                return found
        }
        return null
    }

    function test_buttonsByClass_data() {
        return [
            { tag: "act", irreversible: false, offersTrust: true, label: "Needs your OK" },
            { tag: "draft", irreversible: false, offersTrust: false, label: "Needs your OK" },
            { tag: "irreversible", irreversible: true, offersTrust: false, label: "Can't be undone" }
        ]
    }

    function test_buttonsByClass(data) {
        const card = createTemporaryObject(cardComponent, window.contentItem,
                                           { irreversible: data.irreversible, offersTrust: data.offersTrust,
                                             label: data.label })
        verify(card)
        decided.target = card
        trusted.target = card
        verify(buttonNamed(card, "Allow"))
        verify(buttonNamed(card, "Deny"))
        compare(buttonNamed(card, "Allow all for this piece") !== null, data.offersTrust)
        compare(card.Accessible.name, data.label + ": Click “Send” in Mail")

        mouseClick(buttonNamed(card, "Deny"))
        compare(decided.count, 1)
        compare(decided.signalArguments[0][0], false)
        if (data.offersTrust) {
            mouseClick(buttonNamed(card, "Allow all for this piece"))
            compare(trusted.count, 1)
        }
    }

    function test_keyboard() {
        const card = createTemporaryObject(cardComponent, window.contentItem)
        decided.target = card
        // The card holds the focus when it shows: a stray Return allows nothing.
        tryVerify(() => card.activeFocus)
        keyClick(Qt.Key_Return)
        compare(decided.count, 0)
        // Tab reaches Allow: Return allows.
        keyClick(Qt.Key_Tab)
        verify(buttonNamed(card, "Allow").activeFocus)
        keyClick(Qt.Key_Return)
        compare(decided.count, 1)
        compare(decided.signalArguments[0][0], true)
        // Tab walks on to "Allow all for this piece", then to Deny.
        keyClick(Qt.Key_Tab)
        verify(buttonNamed(card, "Allow all for this piece").activeFocus)
        keyClick(Qt.Key_Tab)
        verify(buttonNamed(card, "Deny").activeFocus)
        keyClick(Qt.Key_Space)
        compare(decided.count, 2)
        compare(decided.signalArguments[1][0], false)
    }

    function test_details() {
        const card = createTemporaryObject(cardComponent, window.contentItem)
        const details = buttonNamed(card, "Details")
        verify(details)
        mouseClick(details)
        verify(buttonNamed(card, "Hide details"))
        const noDetail = createTemporaryObject(cardComponent, window.contentItem, { detail: "" })
        compare(buttonNamed(noDetail, "Details"), null)
    }
}
