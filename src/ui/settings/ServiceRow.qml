import QtQuick
import Limitra.Panel

// One detected-service line of the welcome guide: a status icon beside the
// service name and, when the tool left no credentials, the hint to set it up.
Row {
    id: row

    required property string name
    required property bool detected
    required property string hint

    spacing: 8

    TintedIcon {
        objectName: "statusIcon"
        // On the first line's text.
        y: (nameText.implicitHeight - height) / 2
        name: row.detected ? "check-circle" : "xmark-circle"
        color: row.detected ? Theme.green : Theme.secondary
        size: Theme.statusIconSize
    }

    Column {
        spacing: 2
        width: row.width - Theme.statusIconSize - row.spacing

        Text {
            id: nameText
            objectName: "serviceName"
            width: parent.width
            text: row.name
            textFormat: Text.PlainText
            font.pixelSize: Theme.bodySize
            color: Theme.primary
        }

        Text {
            objectName: "hint"
            width: parent.width
            visible: !row.detected
            text: row.hint
            textFormat: Text.PlainText
            wrapMode: Text.Wrap
            font.pixelSize: Theme.captionSize
            color: Theme.secondary
        }
    }
}
