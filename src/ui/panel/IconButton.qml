import QtQuick
import QtQuick.Controls.Basic
import Limitra.Panel

// A round, chrome-less header button: a glyph (or a spinner while busy) on a
// faint circle, with a tooltip.
Item {
    id: button

    required property string icon
    required property string tip
    property bool busy: false

    signal clicked()

    implicitWidth: Theme.buttonSize
    implicitHeight: Theme.buttonSize

    Rectangle {
        anchors.fill: parent
        radius: width / 2
        color: Theme.buttonFill
    }

    TintedIcon {
        objectName: "glyph"
        anchors.centerIn: parent
        name: button.icon
        color: Theme.primary
        size: Theme.buttonGlyphSize
        visible: !button.busy
    }

    Spinner {
        objectName: "spinner"
        anchors.centerIn: parent
        color: Theme.primary
        visible: button.busy
    }

    MouseArea {
        id: mouse
        anchors.fill: parent
        hoverEnabled: true
        onClicked: button.clicked()
    }

    ToolTip.text: tip
    ToolTip.visible: mouse.containsMouse
    ToolTip.delay: 600
}
