import QtQuick
import QtQuick.Controls.Fusion
import Limitra.Panel

// The "General" tab: a grouped form bound to the settings, so every change is
// written at once and every reader of the key follows it. It holds nothing of
// its own but the login switch's state.
Column {
    id: general

    required property Defaults settings
    required property LoginSwitch login

    readonly property var styleChoices: [
        { text: "Icono y porcentajes", value: "iconAndPercents" },
        { text: "Solo icono", value: "iconOnly" },
        { text: "Icono y el % más bajo", value: "iconAndWorst" }
    ]
    readonly property var intervalChoices: SettingsFormat.intervalChoices(settings.refreshIntervalMinutes)

    function indexOf(choices, value) {
        for (let i = 0; i < choices.length; ++i) {
            if (choices[i].value === value)
                return i
        }
        return -1
    }

    leftPadding: 20
    rightPadding: 20
    topPadding: 4 + 14
    bottomPadding: 4 + 16
    spacing: 16

    FormSection {
        width: general.width - general.leftPadding - general.rightPadding

        FormRow {
            label: "Abrir al iniciar sesión"

            Switch {
                objectName: "launchAtLogin"
                checked: general.login.on
                onToggled: general.login.request(checked)
            }
        }

        FormRow {
            objectName: "loginError"
            visible: general.login.failed
            label: "No se pudo cambiar. Revisa que puedas escribir en ~/.config/autostart e inténtalo de nuevo."
            labelItem.font.pixelSize: Theme.captionSize
            labelItem.color: Theme.orange
        }
    }

    FormSection {
        width: general.width - general.leftPadding - general.rightPadding
        title: "Servicios"

        FormRow {
            label: "Claude Code"

            Switch {
                objectName: "showClaude"
                checked: general.settings.showClaude
                onToggled: general.settings.showClaude = checked
            }
        }

        FormRow {
            label: "Codex"

            Switch {
                objectName: "showCodex"
                checked: general.settings.showCodex
                onToggled: general.settings.showCodex = checked
            }
        }
    }

    FormSection {
        width: general.width - general.leftPadding - general.rightPadding
        title: "Barra de menús"

        FormRow {
            label: "Mostrar"

            ComboBox {
                objectName: "menuBarStyle"
                width: 190
                model: general.styleChoices
                textRole: "text"
                valueRole: "value"
                // A value that names no style is drawn as the tray draws it: icon and percentages.
                currentIndex: Math.max(0, general.indexOf(general.styleChoices, general.settings.menuBarStyle))
                onActivated: index => general.settings.menuBarStyle = general.styleChoices[index].value
            }
        }
    }

    FormSection {
        width: general.width - general.leftPadding - general.rightPadding
        title: "Porcentaje"

        FormRow {
            label: "Mostrar como"

            SegmentedControl {
                objectName: "percentMode"
                choices: [
                    { text: "Restante", value: "remaining" },
                    { text: "Usado", value: "used" }
                ]
                // Anything but "used" counts as remaining.
                value: general.settings.percentMode === "used" ? "used" : "remaining"
                onActivated: value => general.settings.percentMode = value
            }
        }

        FormRow {
            objectName: "percentExplanation"
            label: SettingsFormat.percentExplanation(general.settings.percentMode)
            labelItem.font.pixelSize: Theme.captionSize
            labelItem.color: Theme.secondary
        }
    }

    FormSection {
        width: general.width - general.leftPadding - general.rightPadding
        title: "Actualización"

        FormRow {
            label: "Actualizar cada"

            ComboBox {
                objectName: "refreshInterval"
                width: 190
                model: general.intervalChoices
                textRole: "text"
                valueRole: "value"
                currentIndex: general.indexOf(general.intervalChoices, general.settings.refreshIntervalMinutes)
                onActivated: index => general.settings.refreshIntervalMinutes = general.intervalChoices[index].value
            }
        }
    }

    FormSection {
        width: general.width - general.leftPadding - general.rightPadding
        title: "Avisos"

        FormRow {
            label: "Avisarme cuando quede poco"

            Switch {
                objectName: "notifyLow"
                checked: general.settings.notifyLow
                onToggled: general.settings.notifyLow = checked
            }
        }
    }
}
