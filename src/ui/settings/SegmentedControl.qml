pragma ComponentBehavior: Bound

import QtQuick
import Limitra.Panel

// A row of mutually exclusive segments in one rounded frame. `choices` holds
// { text, value }; the segment whose value is `value` is drawn selected, and
// a click reports the chosen value through `activated`.
Rectangle {
    id: control

    required property var choices
    property string value: ""

    signal activated(string value)

    implicitWidth: segments.implicitWidth + 4
    implicitHeight: 26
    radius: 6
    color: Theme.buttonFill
    border.color: Theme.separator

    Row {
        id: segments
        anchors.centerIn: parent

        Repeater {
            model: control.choices

            Rectangle {
                id: segment

                required property var modelData
                readonly property bool selected: modelData.value === control.value

                objectName: "segment_" + modelData.value
                width: Math.max(76, label.implicitWidth + 24)
                height: control.height - 4
                radius: 5
                color: selected ? Theme.textBackground : "transparent"
                border.color: selected ? Theme.separator : "transparent"

                Text {
                    id: label
                    anchors.centerIn: parent
                    text: segment.modelData.text
                    font.pixelSize: Theme.bodySize
                    font.bold: segment.selected
                    color: Theme.primary
                }

                MouseArea {
                    anchors.fill: parent
                    onClicked: control.activated(segment.modelData.value)
                }
            }
        }
    }
}
