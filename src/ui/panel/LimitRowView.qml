import QtQuick
import Limitra.Panel

// One usage limit inside a card: title and percentage, a bar, and the reset
// countdown and detail. Numbers and the fill follow the percent mode; the
// colours always follow what is left.
Column {
    id: view

    required property limitRow row
    required property double now
    required property string percentModeRaw

    readonly property int band: PanelFormat.band(row)
    readonly property real contentWidth: width - leftPadding - rightPadding
    readonly property color barColor: band === PanelFormat.Critical ? Theme.red
                                      : band === PanelFormat.Low ? Theme.orange : Theme.blue

    leftPadding: Theme.cardPadding
    rightPadding: Theme.cardPadding
    topPadding: Theme.rowPaddingV
    bottomPadding: Theme.rowPaddingV
    spacing: Theme.rowSpacing

    Item {
        width: view.contentWidth
        height: Math.max(title.height, percent.y + percent.height)

        Text {
            id: title
            objectName: "rowTitle"
            width: parent.width - percent.width - Theme.defaultSpacing
            text: view.row.title
            font.pixelSize: Theme.rowTitleSize
            font.weight: Font.DemiBold
            color: Theme.primary
            wrapMode: Text.Wrap
        }

        Text {
            id: percent
            objectName: "percentText"
            anchors.right: parent.right
            anchors.baseline: title.baseline
            text: PanelFormat.percentText(view.row, view.percentModeRaw)
            font.pixelSize: Theme.percentSize
            font.weight: Font.DemiBold
            color: view.band === PanelFormat.Critical ? Theme.red : Theme.primary
        }
    }

    Rectangle {
        id: track
        objectName: "barTrack"
        width: view.contentWidth
        height: Theme.barHeight
        radius: height / 2
        color: Theme.barTrack

        Rectangle {
            objectName: "barFill"
            width: PanelFormat.fillWidth(track.width, PanelFormat.fillPercent(view.row, view.percentModeRaw))
            height: parent.height
            radius: height / 2
            color: view.barColor
        }
    }

    Row {
        objectName: "resetLine"
        spacing: 4
        visible: view.row.hasResetsAt || view.row.hasDetail

        TintedIcon {
            objectName: "resetIcon"
            anchors.verticalCenter: parent.verticalCenter
            name: "reset"
            color: Theme.tertiary
            size: Theme.resetIconSize
            visible: view.row.hasResetsAt
        }

        Text {
            id: reset
            objectName: "resetText"
            text: PanelFormat.resetText(view.row, view.now)
            font.pixelSize: Theme.captionSize
            color: Theme.secondary
            visible: view.row.hasResetsAt
        }

        Text {
            objectName: "detailText"
            width: Math.min(implicitWidth, view.contentWidth
                            - (view.row.hasResetsAt ? reset.width + Theme.resetIconSize + 8 : 0))
            text: view.row.detail
            font.pixelSize: Theme.captionSize
            color: Theme.secondary
            wrapMode: Text.Wrap
            visible: view.row.hasDetail
        }
    }
}
