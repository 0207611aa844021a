import QtQuick
import Limitra.Panel

// One hint of the welcome guide: a tinted icon beside a wrapping Markdown text.
Row {
    id: hint

    required property string icon
    required property color iconColor
    required property string text

    spacing: 8

    TintedIcon {
        name: hint.icon
        color: hint.iconColor
        size: 18
    }

    Text {
        objectName: "hintText"
        width: hint.width - 18 - hint.spacing
        text: hint.text
        textFormat: Text.MarkdownText
        wrapMode: Text.Wrap
        font.pixelSize: Theme.bodySize
        color: Theme.primary
    }
}
