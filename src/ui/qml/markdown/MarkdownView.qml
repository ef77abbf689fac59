pragma ComponentBehavior: Bound
import QtQuick
import Qt.labs.qmlmodels
import Zorvane.Ui

// An answer's Markdown, one delegate a block, 8 points apart; only the blocks in view
// are made, so a long answer costs what a short one does.
ListView {
    id: view

    required property MarkdownModel blocks
    property int textSize: 13

    model: view.blocks
    spacing: 8
    clip: contentHeight > height
    boundsBehavior: Flickable.StopAtBounds
    interactive: contentHeight > height
    Accessible.role: Accessible.Document

    delegate: DelegateChooser {
        role: "kind"
        DelegateChoice {
            roleValue: "heading"
            MarkdownText {
                width: view.width
                textSize: view.textSize
            }
        }
        DelegateChoice {
            roleValue: "paragraph"
            MarkdownText {
                width: view.width
                textSize: view.textSize
            }
        }
        DelegateChoice {
            roleValue: "quote"
            MarkdownQuote {
                width: view.width
                textSize: view.textSize
            }
        }
        DelegateChoice {
            roleValue: "bullets"
            MarkdownList {
                width: view.width
                textSize: view.textSize
            }
        }
        DelegateChoice {
            roleValue: "numbered"
            MarkdownList {
                width: view.width
                textSize: view.textSize
            }
        }
        DelegateChoice {
            roleValue: "table"
            MarkdownTable {
                width: view.width
                textSize: view.textSize
            }
        }
        DelegateChoice {
            roleValue: "code"
            MarkdownCode {
                width: view.width
            }
        }
        DelegateChoice {
            roleValue: "rule"
            Rectangle {
                width: view.width
                height: 1
                color: Ink.hairline
                Accessible.ignored: true
            }
        }
    }
}
