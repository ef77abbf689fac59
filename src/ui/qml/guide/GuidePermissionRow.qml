import QtQuick
import Zorvane.Ui

// One permission: whether it is granted, what it is for, the button that asks for it and,
// after a try that didn't take, what to do.
Rectangle {
    id: row

    required property int index
    required property string title
    required property string text
    required property bool granted
    required property string image
    required property string button
    required property string help

    signal grantClicked(int row)

    implicitHeight: content.implicitHeight + 16
    radius: 12
    color: Ink.card
    Accessible.role: Accessible.Grouping
    Accessible.name: row.title

    Glyph {
        x: 10
        y: 9
        name: row.image
        color: row.granted ? Ink.green : Ink.tertiary
        font.pixelSize: 14
    }

    Column {
        id: content

        x: 32
        y: 8
        width: row.width - 42 - (ask.visible ? ask.width + 8 : 0)
        spacing: 2

        Text {
            width: content.width
            text: row.title
            color: Ink.text
            font.pixelSize: 13
            font.weight: Font.DemiBold
            Accessible.role: Accessible.StaticText
            Accessible.name: row.title + (row.granted ? ", granted" : ", not granted")
        }
        Text {
            width: content.width
            text: row.text
            wrapMode: Text.Wrap
            color: Ink.secondary
            font.pixelSize: 12
            Accessible.role: Accessible.StaticText
            Accessible.name: text
        }
        Text {
            visible: row.help !== ""
            width: content.width
            text: row.help
            wrapMode: Text.Wrap
            color: Ink.orange
            font.pixelSize: 11
            Accessible.role: Accessible.StaticText
            Accessible.name: text
            Accessible.ignored: !visible
        }
    }

    InkButton {
        id: ask

        anchors.right: parent.right
        anchors.rightMargin: 10
        y: 8
        visible: row.button !== ""
        text: row.button
        Accessible.name: row.button + " " + row.title
        onClicked: row.grantClicked(row.index)
    }
}
