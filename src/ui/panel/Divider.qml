import QtQuick
import Limitra.Panel

// A hairline across the card, inset from both edges.
Item {
    implicitHeight: 1

    Rectangle {
        x: Theme.cardPadding
        width: parent.width - 2 * Theme.cardPadding
        height: 1
        color: Theme.separator
    }
}
