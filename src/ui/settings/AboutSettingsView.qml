import QtQuick
import QtQuick.Controls.Fusion
import Limitra.Panel

// The "Acerca de" tab: icon, name and version, the manual update check, the
// link to the welcome guide, what the program does with credentials, and the credit.
Column {
    id: pane

    required property AboutActions about

    readonly property real contentWidth: width - leftPadding - rightPadding

    padding: Theme.windowPadding
    spacing: 10

    TintedIcon {
        anchors.horizontalCenter: parent.horizontalCenter
        name: "gauge"
        size: Theme.aboutSymbolSize
        color: Theme.blue
    }

    Text {
        anchors.horizontalCenter: parent.horizontalCenter
        text: "Limitra"
        font.pixelSize: Theme.title3Size
        font.bold: true
        color: Theme.primary
    }

    Text {
        objectName: "versionLine"
        anchors.horizontalCenter: parent.horizontalCenter
        text: pane.about.versionLine
        font.pixelSize: Theme.captionSize
        color: Theme.secondary
    }

    Button {
        objectName: "checkButton"
        anchors.horizontalCenter: parent.horizontalCenter
        enabled: !pane.about.checking
        leftPadding: 14
        rightPadding: 14
        onClicked: pane.about.checkForUpdates()

        // The label keeps its room while hidden, so the spinner takes its place without a jump.
        contentItem: Text {
            text: "Buscar actualizaciones"
            font.pixelSize: Theme.bodySize
            color: pane.about.checking ? "transparent" : Theme.primary

            Spinner {
                objectName: "checkSpinner"
                anchors.centerIn: parent
                visible: pane.about.checking
                color: Theme.primary
            }
        }
    }

    Text {
        objectName: "updateResult"
        anchors.horizontalCenter: parent.horizontalCenter
        visible: pane.about.result !== ""
        text: pane.about.result
        font.pixelSize: Theme.captionSize
        color: Theme.secondary
    }

    Text {
        objectName: "welcomeLink"
        anchors.horizontalCenter: parent.horizontalCenter
        text: "Ver guía de bienvenida"
        font.pixelSize: Theme.captionSize
        font.underline: link.containsMouse
        color: Theme.blue

        MouseArea {
            id: link
            anchors.fill: parent
            anchors.margins: -3
            hoverEnabled: true
            cursorShape: Qt.PointingHandCursor
            onClicked: pane.about.openWelcome()
        }
    }

    Text {
        objectName: "description"
        width: pane.contentWidth
        horizontalAlignment: Text.AlignHCenter
        wrapMode: Text.Wrap
        text: "Monitorea los límites de uso de Claude Code y Codex leyendo las sesiones que ya tienes iniciadas en sus CLIs. Tus credenciales nunca salen de tu equipo: solo se usan para consultar los endpoints oficiales de uso."
        font.pixelSize: Theme.calloutSize
        color: Theme.secondary
    }

    Text {
        objectName: "credit"
        anchors.horizontalCenter: parent.horizontalCenter
        text: "Hecho por el proyecto Limitra"
        font.pixelSize: Theme.captionSize
        color: Theme.tertiary
    }
}
