import QtQuick
import QtQuick.Window
import QtTest
import Zorvane.Ui

// A chip keeps to its width with a long text, cut at the end, while its accessible name
// keeps the whole text; Return and Space press it.
TestCase {
    id: test

    name: "InkChip"
    when: windowShown
    width: 400
    height: 200

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
        id: chipComponent

        InkChip {
            maximumWidth: 160
        }
    }

    SignalSpy {
        id: clicked

        signalName: "clicked"
    }

    function init(): void {
        failOnWarning(/.?/)
        clicked.clear()
    }

    function test_elision() {
        const brief = createTemporaryObject(chipComponent, window.contentItem, { text: "Summarize this" })
        const lengthy = createTemporaryObject(chipComponent, window.contentItem,
                                           { text: "A very long suggestion that cannot fit in one small chip at all" })
        verify(brief.width < 160)
        compare(lengthy.width, 160)
        compare(lengthy.Accessible.name, "A very long suggestion that cannot fit in one small chip at all")
        const shown = lengthy.contentItem.children[1]
        verify(shown.truncated)
        verify(!brief.contentItem.children[1].truncated)
    }

    function test_keys() {
        const chip = createTemporaryObject(chipComponent, window.contentItem, { text: "Explain this" })
        clicked.target = chip
        chip.forceActiveFocus()
        keyClick(Qt.Key_Return)
        keyClick(Qt.Key_Space)
        compare(clicked.count, 2)
    }
}
