import QtQuick
import Limitra.Panel

// One service in the panel: emoji, name and plan badge, then a card that shows
// the record's error, a loading indicator, or its limit rows.
Column {
    id: section

    required property string name
    required property string emoji
    required property serviceUsage usage
    required property double now
    required property string percentModeRaw

    readonly property int cardState: PanelFormat.cardState(usage)

    spacing: 8

    Item {
        width: section.width
        height: Math.max(emojiText.height, nameText.height, badge.visible ? badge.height : 0)

        Text {
            id: emojiText
            anchors.verticalCenter: parent.verticalCenter
            text: section.emoji
            font.pixelSize: Theme.emojiSize
        }

        Text {
            id: nameText
            objectName: "serviceName"
            anchors.left: emojiText.right
            anchors.leftMargin: 6
            anchors.verticalCenter: parent.verticalCenter
            text: section.name
            font.pixelSize: Theme.serviceNameSize
            font.weight: Font.DemiBold
            color: Theme.secondary
        }

        Rectangle {
            id: badge
            objectName: "planBadge"
            anchors.right: parent.right
            anchors.verticalCenter: parent.verticalCenter
            width: badgeText.implicitWidth + 16
            height: badgeText.implicitHeight + 6
            radius: height / 2
            color: Theme.badgeFill
            visible: section.usage.hasPlanBadge

            Text {
                id: badgeText
                objectName: "planBadgeText"
                anchors.centerIn: parent
                text: section.usage.planBadge
                font.pixelSize: Theme.badgeSize
                font.weight: Font.Medium
                color: Theme.secondary
            }
        }
    }

    Item {
        id: card
        objectName: "card"
        width: section.width
        height: content.implicitHeight

        Rectangle {
            anchors.fill: parent
            radius: Theme.cardRadius
            color: Theme.cardFill
        }

        Column {
            id: content
            width: parent.width

            Item {
                objectName: "errorLabel"
                width: parent.width
                height: errorText.height + 2 * Theme.cardPadding
                visible: section.cardState === PanelFormat.ErrorCard

                TintedIcon {
                    objectName: "errorIcon"
                    x: Theme.cardPadding
                    // Centred on the first line of the message.
                    y: Theme.cardPadding + (errorText.firstLineHeight - size) / 2
                    name: "warning"
                    color: Theme.orange
                    size: Theme.calloutSize + 2
                }

                Text {
                    id: errorText

                    readonly property real firstLineHeight: contentHeight / Math.max(1, lineCount)

                    objectName: "errorText"
                    x: Theme.cardPadding + Theme.calloutSize + 2 + 6
                    y: Theme.cardPadding
                    width: parent.width - x - Theme.cardPadding
                    text: section.usage.error
                    font.pixelSize: Theme.calloutSize
                    color: Theme.orange
                    wrapMode: Text.Wrap
                }
            }

            Row {
                objectName: "loadingIndicator"
                padding: Theme.cardPadding
                spacing: 8
                visible: section.cardState === PanelFormat.LoadingCard

                Spinner {
                    objectName: "spinner"
                    anchors.verticalCenter: parent.verticalCenter
                }

                Text {
                    objectName: "loadingText"
                    anchors.verticalCenter: parent.verticalCenter
                    text: "Cargando…"
                    font.pixelSize: Theme.calloutSize
                    color: Theme.secondary
                }
            }

            Repeater {
                model: section.cardState === PanelFormat.RowsCard ? section.usage.rows : []

                Column {
                    id: entry

                    required property var modelData
                    required property int index

                    width: content.width

                    Divider {
                        objectName: "rowDivider"
                        width: parent.width
                        visible: entry.index > 0
                    }

                    LimitRowView {
                        objectName: "limitRow"
                        width: parent.width
                        row: entry.modelData
                        now: section.now
                        percentModeRaw: section.percentModeRaw
                    }
                }
            }

            Divider {
                objectName: "updatedDivider"
                width: parent.width
                visible: updated.visible
            }

            Text {
                id: updated
                objectName: "updatedText"
                leftPadding: Theme.cardPadding
                rightPadding: Theme.cardPadding
                topPadding: 10
                bottomPadding: 10
                text: PanelFormat.updatedText(section.usage, section.now)
                font.pixelSize: Theme.captionSize
                color: Theme.tertiary
                visible: section.cardState === PanelFormat.RowsCard && section.usage.hasUpdatedAt
            }
        }

        Rectangle {
            anchors.fill: parent
            radius: Theme.cardRadius
            color: "transparent"
            border.width: 1
            border.color: Theme.cardOutline
        }
    }
}
