import QtQuick
import QtQuick.Controls.Fusion
import Limitra.Panel

// The welcome guide, "Bienvenida": where the tray icon is, what to do when it
// is hidden, and which tools left credentials here. 430 wide, as tall as its
// content; "Entendido" (or Return) closes it and changes nothing.
DesktopWindow {
    id: window

    required property WelcomeDetection detection

    title: "Bienvenida"
    contentSize: Qt.size(Theme.welcomeWidth, content.implicitHeight)

    Shortcut {
        sequences: ["Return", "Enter"]
        onActivated: window.close()
    }

    Column {
        id: content

        readonly property real innerWidth: width - leftPadding - rightPadding

        width: parent.width
        padding: Theme.windowPadding
        spacing: 16

        TintedIcon {
            anchors.horizontalCenter: parent.horizontalCenter
            name: "gauge"
            size: Theme.welcomeSymbolSize
            color: Theme.blue
        }

        Text {
            anchors.horizontalCenter: parent.horizontalCenter
            text: "¡Limitra ya está corriendo!"
            textFormat: Text.MarkdownText
            font.pixelSize: Theme.title3Size
            font.bold: true
            color: Theme.primary
        }

        Column {
            width: content.innerWidth
            spacing: 10

            WelcomeHint {
                objectName: "trayHint"
                width: parent.width
                icon: "tray-arrow"
                iconColor: Theme.blue
                text: "Busca el **velocímetro** en la bandeja del sistema de tu panel y haz clic para ver tus límites."
            }

            WelcomeHint {
                objectName: "hiddenHint"
                width: parent.width
                icon: "eye-slash"
                iconColor: Theme.orange
                text: "¿No lo ves? En GNOME hace falta la extensión AppIndicator para ver íconos de bandeja; en otros escritorios, revisa que el panel tenga un área de notificación, o elige \"Solo icono\" en Ajustes."
            }
        }

        Rectangle {
            width: content.innerWidth
            height: 1
            color: Theme.separator
        }

        Column {
            width: content.innerWidth
            spacing: 8

            Text {
                width: parent.width
                text: "Servicios detectados en este equipo"
                textFormat: Text.MarkdownText
                font.pixelSize: Theme.subheadlineSize
                font.bold: true
                color: Theme.primary
            }

            // While the secret store answers; the window is usable meanwhile.
            Spinner {
                objectName: "detecting"
                visible: !window.detection.ready
            }

            ServiceRow {
                objectName: "claudeRow"
                width: parent.width
                visible: window.detection.ready
                name: "Claude Code"
                detected: window.detection.claudeDetected
                hint: "Instala Claude Code y ejecuta `claude` para iniciar sesión."
            }

            ServiceRow {
                objectName: "codexRow"
                width: parent.width
                visible: window.detection.ready
                name: "Codex"
                detected: window.detection.codexDetected
                hint: "Instala Codex y ejecuta `codex login`."
            }

            Text {
                objectName: "neitherNote"
                width: parent.width
                visible: window.detection.ready && !window.detection.claudeDetected
                    && !window.detection.codexDetected
                text: "La app necesita al menos uno de los dos para tener algo que mostrar."
                textFormat: Text.MarkdownText
                wrapMode: Text.Wrap
                font.pixelSize: Theme.captionSize
                color: Theme.secondary
            }
        }

        Button {
            objectName: "doneButton"
            anchors.horizontalCenter: parent.horizontalCenter
            text: "Entendido"
            highlighted: true
            onClicked: window.close()
        }
    }
}
