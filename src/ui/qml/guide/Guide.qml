import QtQuick
import Zorvane.Ui

// The first-start guide on the goo's card under the band: the step's page, then the
// footer with the step dots, "Back" and the forward button, which has the focus. The
// goo's stem takes the top `inset` points; the panel's size is the guide's own.
FocusScope {
    id: root

    required property OnboardingAdapter guide
    readonly property real inset: 20

    anchors.fill: parent
    Accessible.role: Accessible.Dialog
    Accessible.name: "Welcome to Zorvane"

    GuidePage {
        x: 24
        y: root.inset + 18
        width: root.width - 48
        height: footer.y - y - 12
        guide: root.guide
    }

    GuideFooter {
        id: footer

        x: 24
        y: root.height - implicitHeight - 16
        width: root.width - 48
        guide: root.guide
        focus: true
    }
}
