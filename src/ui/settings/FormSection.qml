import QtQuick
import Limitra.Panel

// One group of a grouped form: an optional header over a rounded box whose
// rows (FormRow) are stacked with hairlines between them.
Column {
    id: section

    property string title: ""
    default property alias rows: box.data

    spacing: 6

    Text {
        visible: section.title !== ""
        leftPadding: 10
        text: section.title
        font.pixelSize: Theme.captionSize
        font.bold: true
        color: Theme.secondary
    }

    Rectangle {
        width: section.width
        height: box.implicitHeight
        radius: Theme.formGroupRadius
        color: Theme.cardFill
        border.color: Theme.cardOutline

        Column {
            id: box
            width: parent.width
        }
    }
}
