import QtQuick
import Limitra.Panel

// One row of a FormSection: a label on the leading side and, when given, a
// control on the trailing side. A label alone wraps over as many lines as it needs.
Item {
    id: row

    property string label: ""
    property alias labelItem: labelText
    default property alias control: slot.data

    width: parent ? parent.width : 0
    implicitHeight: Math.max(Theme.formRowHeight, labelText.implicitHeight + 16, slot.height + 10)

    Rectangle {
        x: 12
        width: row.width - 24
        height: 1
        color: Theme.separator
        visible: row.y > 0
    }

    Text {
        id: labelText
        anchors.left: parent.left
        anchors.leftMargin: 12
        anchors.verticalCenter: parent.verticalCenter
        width: row.width - 24 - (slot.width > 0 ? slot.width + 12 : 0)
        text: row.label
        wrapMode: Text.Wrap
        font.pixelSize: Theme.bodySize
        color: Theme.primary
    }

    Item {
        id: slot
        anchors.right: parent.right
        anchors.rightMargin: 10
        anchors.verticalCenter: parent.verticalCenter
        width: childrenRect.width
        height: childrenRect.height
    }
}
