pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls as QQC2
import Zorvane.Ui

// One step of the guide: its title and paragraphs, then the agent, the permissions or the
// tips, in a column that scrolls when it is taller than the card. Keyboard focus moving
// to a control out of sight scrolls it into view.
Item {
    id: page

    required property OnboardingAdapter guide
    readonly property int step: page.guide.step

    // Scrolls the focused `item` into view when it is inside the page, with as much of
    // what holds it (its row, its card) as fits.
    function reveal(item: Item): void {
        let shown = item
        let above = item
        while (above !== null && above !== column) {
            if (above.height <= flick.height)
                shown = above
            above = above.parent
        }
        if (above === null)
            return
        const box = shown.mapToItem(column, 0, 0, shown.width, shown.height)
        if (box.y < flick.contentY)
            flick.contentY = Math.max(0, box.y - 8)
        else if (box.y + box.height > flick.contentY + flick.height)
            flick.contentY = Math.min(flick.contentHeight - flick.height, box.y + box.height - flick.height + 8)
    }

    onStepChanged: flick.contentY = 0

    Connections {
        target: page.Window.window
        function onActiveFocusItemChanged(): void {
            const item = page.Window.activeFocusItem
            if (item !== null)
                page.reveal(item)
        }
    }

    Flickable {
        id: flick

        anchors.fill: parent
        contentWidth: width
        contentHeight: column.implicitHeight
        boundsBehavior: Flickable.StopAtBounds
        clip: true
        // A row that grows under the focus (a hint after a try) stays in view.
        onContentHeightChanged: {
            const item = page.Window.activeFocusItem
            if (item !== null)
                page.reveal(item)
        }

        QQC2.ScrollBar.vertical: QQC2.ScrollBar {
            id: bar

            policy: flick.contentHeight > flick.height ? QQC2.ScrollBar.AlwaysOn : QQC2.ScrollBar.AlwaysOff
            contentItem: Rectangle {
                implicitWidth: 3
                radius: 1.5
                color: bar.pressed ? Ink.secondary : Ink.tertiary
            }
        }

        Column {
            id: column

            width: flick.width - 10
            spacing: 8

            Text {
                width: column.width
                text: page.guide.title
                wrapMode: Text.Wrap
                color: Ink.text
                font.pixelSize: 18
                font.weight: Font.DemiBold
                Accessible.role: Accessible.Heading
                Accessible.name: text
            }

            Repeater {
                model: page.guide.paragraphs
                delegate: Text {
                    required property string modelData

                    width: column.width
                    text: modelData
                    wrapMode: Text.Wrap
                    lineHeight: 1.1
                    color: Ink.secondary
                    font.pixelSize: 13
                    Accessible.role: Accessible.StaticText
                    Accessible.name: text
                }
            }

            GuideAgent {
                width: column.width
                visible: page.guide.showsAgent
                guide: page.guide
            }

            GuidePermissions {
                width: column.width
                visible: page.guide.showsPermissions
                guide: page.guide
            }

            GuideTips {
                width: column.width
                visible: page.guide.showsTips
                guide: page.guide
            }
        }
    }
}
