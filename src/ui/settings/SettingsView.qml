import QtQuick
import QtQuick.Controls.Fusion
import Limitra.Panel

// The settings window: a strip of two tabs, "General" and "Acerca de", over the
// selected tab's content. 440 wide; the height follows the selected tab.
DesktopWindow {
    id: window

    required property Defaults settings
    required property LoginSwitch login
    required property AboutActions about

    readonly property Item currentPane: tabs.currentIndex === 0 ? general : aboutPane

    title: "Ajustes de Limitra"
    contentSize: Qt.size(Theme.settingsWidth, tabs.height + separator.height + currentPane.implicitHeight)

    TabBar {
        id: tabs
        objectName: "tabs"
        anchors.horizontalCenter: parent.horizontalCenter
        topPadding: 8
        bottomPadding: 6
        spacing: 4
        background: null

        Repeater {
            model: [
                { label: "General", icon: "gear" },
                { label: "Acerca de", icon: "info" }
            ]

            TabButton {
                id: tab

                required property var modelData
                required property int index

                objectName: "tab" + index
                width: 84
                padding: 6
                text: modelData.label

                contentItem: Column {
                    spacing: 3

                    TintedIcon {
                        anchors.horizontalCenter: parent.horizontalCenter
                        name: tab.modelData.icon
                        size: 20
                        color: tab.checked ? Theme.blue : Theme.secondary
                    }

                    Text {
                        anchors.horizontalCenter: parent.horizontalCenter
                        text: tab.text
                        font.pixelSize: Theme.captionSize
                        color: tab.checked ? Theme.blue : Theme.primary
                    }
                }

                background: Rectangle {
                    radius: 6
                    color: tab.checked ? Theme.buttonFill : "transparent"
                }
            }
        }
    }

    Rectangle {
        id: separator
        anchors.top: tabs.bottom
        width: parent.width
        height: 1
        color: Theme.separator
    }

    GeneralSettingsView {
        id: general
        objectName: "general"
        anchors.top: separator.bottom
        width: parent.width
        visible: tabs.currentIndex === 0
        settings: window.settings
        login: window.login
    }

    AboutSettingsView {
        id: aboutPane
        objectName: "about"
        anchors.top: separator.bottom
        width: parent.width
        visible: tabs.currentIndex === 1
        about: window.about
    }
}
