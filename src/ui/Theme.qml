pragma Singleton
import QtQuick

// Sizes and colours of the panel. Colours follow the desktop palette, so light
// and dark themes both read well; label colours fade the window text.
QtObject {
    id: theme

    readonly property SystemPalette palette: SystemPalette { colorGroup: SystemPalette.Active }
    readonly property bool dark: palette.window.hslLightness < 0.5

    function fade(base, opacity) {
        return Qt.rgba(base.r, base.g, base.b, base.a * opacity)
    }

    // Colours.
    readonly property color windowBackground: palette.window
    readonly property color textBackground: palette.base
    readonly property color primary: palette.windowText
    readonly property color secondary: fade(primary, 0.62)
    readonly property color tertiary: fade(primary, 0.42)
    readonly property color red: dark ? "#ff453a" : "#ff3b30"
    readonly property color orange: dark ? "#ff9f0a" : "#ff9500"
    readonly property color blue: dark ? "#0a84ff" : "#007aff"
    readonly property color green: dark ? "#30d158" : "#28a745"
    readonly property color white: "#ffffff"
    readonly property color cardFill: fade(textBackground, 0.7)
    readonly property color cardOutline: fade(primary, 0.06)
    readonly property color separator: fade(primary, 0.14)
    readonly property color buttonFill: fade(primary, 0.06)
    readonly property color badgeFill: fade(primary, 0.07)
    readonly property color barTrack: fade(primary, 0.12)

    // Text sizes, in logical pixels.
    readonly property int titleSize: 28
    readonly property int serviceNameSize: 15
    readonly property int emojiSize: 13
    readonly property int rowTitleSize: 14
    readonly property int percentSize: 13
    readonly property int bannerTitleSize: 13
    readonly property int calloutSize: 12
    readonly property int badgeSize: 11
    readonly property int captionSize: 11
    readonly property int caption2Size: 10
    readonly property int title3Size: 18
    readonly property int bodySize: 13
    readonly property int subheadlineSize: 12
    readonly property int resetIconSize: 10

    // Layout.
    readonly property int panelWidth: 360
    readonly property int panelPadding: 16
    readonly property int panelSpacing: 14
    readonly property int sectionSpacing: 18
    readonly property int sectionsBottomPadding: 4
    readonly property int defaultSpacing: 8
    readonly property int buttonSize: 28
    readonly property int buttonGlyphSize: 14
    readonly property int cardRadius: 14
    readonly property int cardPadding: 14
    readonly property int rowPaddingV: 11
    readonly property int rowSpacing: 6
    readonly property int barHeight: 6
    readonly property int bannerRadius: 10
    readonly property int bannerPadding: 10
    readonly property int spinnerSize: 16

    // The settings and welcome windows.
    readonly property int settingsWidth: 440
    readonly property int welcomeWidth: 430
    readonly property int windowPadding: 24
    readonly property int formGroupRadius: 8
    readonly property int formRowHeight: 34
    readonly property int aboutSymbolSize: 44
    readonly property int welcomeSymbolSize: 40
    readonly property int statusIconSize: 16
}
