pragma ComponentBehavior: Bound
import QtQuick
import Zorvane.Ui

// Under every step: a dot a step, the current one lit; "Back" where it goes back; the
// forward button, which has the focus.
FocusScope {
    id: footer

    required property OnboardingAdapter guide

    implicitHeight: forward.implicitHeight

    Row {
        anchors.verticalCenter: parent.verticalCenter
        spacing: 6
        Accessible.role: Accessible.StaticText
        Accessible.name: "Step " + (footer.guide.step + 1) + " of " + footer.guide.stepCount

        Repeater {
            model: footer.guide.stepCount
            delegate: Rectangle {
                required property int index

                width: index === footer.guide.step ? 16 : 6
                height: 6
                radius: 3
                color: index === footer.guide.step ? Ink.text : Ink.tertiary
                Accessible.ignored: true
            }
        }
    }

    Row {
        anchors.right: parent.right
        spacing: 8

        InkButton {
            id: back

            visible: footer.guide.showsBack
            text: "Back"
            onClicked: footer.guide.back()
            // Hidden with the focus on it (back to the first step): the focus goes forward.
            onVisibleChanged: if (!back.visible && back.activeFocus) forward.forceActiveFocus()
        }
        InkPrimary {
            id: forward

            text: footer.guide.forwardTitle
            focus: true
            onClicked: footer.guide.forward()
        }
    }
}
