import QtQuick
import Limitra.Panel

// The panel's content: header, update banner, one card per shown service, and
// the footer. Owns nothing; everything comes from the store and the settings.
Column {
    id: panel

    required property UsageStore store
    required property Defaults settings
    required property PanelActions actions

    readonly property real contentWidth: width - leftPadding - rightPadding

    width: Theme.panelWidth
    padding: Theme.panelPadding
    spacing: Theme.panelSpacing

    Item {
        objectName: "header"
        width: panel.contentWidth
        height: Math.max(title.height, Theme.buttonSize)

        Text {
            id: title
            objectName: "panelTitle"
            anchors.verticalCenter: parent.verticalCenter
            text: "Límites"
            font.pixelSize: Theme.titleSize
            font.bold: true
            color: Theme.primary
        }

        Row {
            anchors.right: parent.right
            anchors.verticalCenter: parent.verticalCenter
            spacing: Theme.defaultSpacing

            IconButton {
                objectName: "settingsButton"
                icon: "gear"
                tip: "Ajustes"
                onClicked: panel.actions.openSettings()
            }

            IconButton {
                objectName: "refreshButton"
                icon: "refresh"
                tip: "Actualizar ahora"
                busy: panel.store.isRefreshing
                onClicked: panel.actions.refresh()
            }
        }
    }

    UpdateBanner {
        objectName: "updateBanner"
        width: panel.contentWidth
        visible: panel.store.hasUpdate
        update: panel.store.updateAvailable
        onOpenRequested: url => panel.actions.openUrl(url)
    }

    Column {
        width: panel.contentWidth
        spacing: Theme.sectionSpacing
        bottomPadding: Theme.sectionsBottomPadding

        ServiceSection {
            objectName: "claudeSection"
            width: parent.width
            visible: panel.settings.showClaude
            name: "Claude Code"
            emoji: "🛋️"
            usage: panel.store.claude
            now: panel.store.now
            percentModeRaw: panel.settings.percentMode
        }

        ServiceSection {
            objectName: "codexSection"
            width: parent.width
            visible: panel.settings.showCodex
            name: "Codex"
            emoji: "🌀"
            usage: panel.store.codex
            now: panel.store.now
            percentModeRaw: panel.settings.percentMode
        }

        Text {
            objectName: "hiddenServicesMessage"
            width: parent.width
            visible: !panel.settings.showClaude && !panel.settings.showCodex
            text: "Ambos servicios están ocultos. Actívalos en Ajustes."
            font.pixelSize: Theme.calloutSize
            color: Theme.secondary
            wrapMode: Text.Wrap
        }
    }

    Item {
        objectName: "footer"
        width: panel.contentWidth
        height: Math.max(interval.height, quit.height)

        Text {
            id: interval
            objectName: "footerText"
            anchors.verticalCenter: parent.verticalCenter
            text: PanelFormat.footerText(panel.settings.refreshIntervalMinutes)
            font.pixelSize: Theme.caption2Size
            color: Theme.tertiary
        }

        Text {
            id: quit
            objectName: "quitButton"
            anchors.right: parent.right
            anchors.verticalCenter: parent.verticalCenter
            text: "Salir"
            font.pixelSize: Theme.captionSize
            color: Theme.secondary

            MouseArea {
                anchors.fill: parent
                anchors.margins: -4
                onClicked: panel.actions.quit()
            }
        }
    }
}
