pragma Singleton
import QtQuick

// The cards' colours and the glyphs their small icons are drawn with.
QtObject {
    readonly property color accent: Qt.rgba(0.94, 0.94, 0.94, 1)
    readonly property color card: Qt.rgba(1, 1, 1, 0.065)
    readonly property color cardHover: Qt.rgba(1, 1, 1, 0.1)
    readonly property color hairline: Qt.rgba(1, 1, 1, 0.09)
    readonly property color secondary: Qt.rgba(1, 1, 1, 0.6)
    readonly property color tertiary: Qt.rgba(1, 1, 1, 0.42)
    readonly property color text: "white"
    readonly property color surface: Qt.rgba(0.10, 0.10, 0.11, 0.97)
    readonly property color green: "#32d74b"
    readonly property color blue: "#0a84ff"
    readonly property color orange: "#ff9f0a"
    readonly property color red: "#ff453a"
    readonly property color purple: "#bf5af2"
    readonly property string mono: "DejaVu Sans Mono"

    readonly property var glyphs: ({
        "info.circle": "\u2139",
        "link": "\u221e",
        "point.3.connected.trianglepath.dotted": "\u2234",
        "clock.arrow.circlepath": "\u21ba",
        "exclamationmark.triangle.fill": "\u26a0",
        "hand.raised.fill": "\u2691",
        "checkmark.circle.fill": "\u2714",
        "checkmark.seal.fill": "\u2714",
        "sparkles": "\u2726",
        "doc.text": "\u2630",
        "play.fill": "\u25b6",
        "record.circle": "\u25c9",
        "plus.circle": "\u2295",
        "doc.badge.plus": "\u2295",
        "macwindow.badge.plus": "\u25a3",
        "terminal": "\u276f",
        "xmark": "\u2715",
        "arrow.down": "\u2193",
        "circle.dashed": "\u25cc",
        "folder": "\u25a4",
        "doc": "\u25a5",
        "globe": "\u25cd",
        "macwindow": "\u25a3"
    })

    function glyph(name: string): string {
        const found = glyphs[name]
        return found === undefined ? "\u2022" : found
    }

    function moodColor(mood: string): color {
        return mood === "needsApproval" ? orange : mood === "working" ? blue : green
    }
}
