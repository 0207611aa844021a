import QtQuick
import Limitra.Panel

// A bundled icon drawn in one colour, `size` wide and high.
Image {
    id: icon

    required property string name
    property color color: Theme.primary
    property real size: 16

    width: size
    height: size
    sourceSize: Qt.size(size, size)
    source: PanelFormat.iconUrl(name, color)
    fillMode: Image.PreserveAspectFit
    smooth: true
    mipmap: true
}
