import QtQuick
import Limitra.Panel

// A small indeterminate progress spinner: spokes of fading opacity turning in
// steps. Drawn from plain rectangles so every renderer shows it.
Item {
    id: spinner

    property color color: Theme.secondary
    readonly property int spokes: 8
    property int step: 0

    implicitWidth: Theme.spinnerSize
    implicitHeight: Theme.spinnerSize

    Repeater {
        model: spinner.spokes

        Rectangle {
            id: spoke

            required property int index
            // How far behind the turning head this spoke is: the head is brightest.
            readonly property int lag: (spinner.step - index + spinner.spokes) % spinner.spokes

            x: (spinner.width - width) / 2
            width: Math.max(1.5, spinner.width * 0.12)
            height: spinner.height * 0.3
            radius: width / 2
            color: spinner.color
            opacity: 1 - 0.75 * lag / spinner.spokes
            transform: Rotation {
                origin.x: spoke.width / 2
                origin.y: spinner.height / 2
                angle: spoke.index * 360 / spinner.spokes
            }
        }
    }

    Timer {
        interval: 100
        repeat: true
        running: spinner.visible
        onTriggered: spinner.step = (spinner.step + 1) % spinner.spokes
    }
}
