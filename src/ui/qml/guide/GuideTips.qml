pragma ComponentBehavior: Bound
import QtQuick
import Zorvane.Ui

// How Zorvane is used: the tips, two to a line.
Grid {
    id: tips

    required property OnboardingAdapter guide

    columns: 2
    columnSpacing: 14
    rowSpacing: 12

    Repeater {
        model: tips.guide.tipTitles
        delegate: Column {
            id: tip

            required property string modelData
            required property int index

            width: (tips.width - tips.columnSpacing) / 2
            spacing: 2

            Text {
                width: tip.width
                text: tip.modelData
                color: Ink.text
                font.pixelSize: 12
                font.weight: Font.DemiBold
                Accessible.role: Accessible.StaticText
                Accessible.name: text
            }
            Text {
                width: tip.width
                text: tips.guide.tipTexts[tip.index] ?? ""
                wrapMode: Text.Wrap
                color: Ink.secondary
                font.pixelSize: 11
                Accessible.role: Accessible.StaticText
                Accessible.name: text
            }
        }
    }
}
