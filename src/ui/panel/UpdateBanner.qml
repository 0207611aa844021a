import QtQuick
import Limitra.Panel

// Announces a newer version; a click anywhere on it asks to open the download.
Rectangle {
    id: banner

    required property updateInfo update

    signal openRequested(url url)

    implicitHeight: content.height + 2 * Theme.bannerPadding
    radius: Theme.bannerRadius
    color: Theme.blue

    Row {
        id: content
        x: Theme.bannerPadding
        y: Theme.bannerPadding
        spacing: 8

        TintedIcon {
            anchors.verticalCenter: parent.verticalCenter
            name: "download"
            color: Theme.white
            size: Theme.bannerTitleSize
        }

        Column {
            anchors.verticalCenter: parent.verticalCenter
            spacing: 1

            Text {
                objectName: "bannerTitle"
                width: Math.min(implicitWidth, banner.width - content.x - parent.x - Theme.bannerPadding)
                text: PanelFormat.bannerTitle(banner.update.version)
                font.pixelSize: Theme.bannerTitleSize
                font.weight: Font.DemiBold
                color: Theme.white
                wrapMode: Text.Wrap
            }

            Text {
                objectName: "bannerSubtitle"
                text: "Haz clic para descargar"
                font.pixelSize: Theme.captionSize
                color: Theme.white
                opacity: 0.85
            }
        }
    }

    MouseArea {
        anchors.fill: parent
        cursorShape: Qt.PointingHandCursor
        onClicked: banner.openRequested(banner.update.downloadURL)
    }
}
