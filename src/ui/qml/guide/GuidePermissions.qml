pragma ComponentBehavior: Bound
import QtQuick
import Zorvane.Ui

// What this desktop must allow, a row each, and the note that asks for a restart.
Column {
    id: permissions

    required property OnboardingAdapter guide

    spacing: 6

    Repeater {
        model: permissions.guide.permissions
        delegate: GuidePermissionRow {
            width: permissions.width
            onGrantClicked: row => permissions.guide.grant(row)
        }
    }

    Row {
        visible: permissions.guide.relaunchNote !== ""
        width: permissions.width
        spacing: 8

        Text {
            anchors.verticalCenter: parent.verticalCenter
            width: permissions.width - relaunch.width - 8
            text: permissions.guide.relaunchNote
            wrapMode: Text.Wrap
            color: Ink.secondary
            font.pixelSize: 12
            Accessible.role: Accessible.StaticText
            Accessible.name: text
            Accessible.ignored: !parent.visible
        }
        InkButton {
            id: relaunch

            text: permissions.guide.relaunchTitle
            onClicked: permissions.guide.relaunch()
        }
    }
}
