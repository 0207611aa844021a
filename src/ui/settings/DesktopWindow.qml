import QtQuick
import Limitra.Panel

// An ordinary top-level window whose controls take the desktop's palette (the
// application palette, which follows the desktop theme, light or dark), the
// same one Theme's colours come from. It is always exactly `contentSize`.
Window {
    id: window

    // What the content needs; the window follows it at once, also once shown.
    property size contentSize

    color: Theme.windowBackground

    WindowFit {
        window: window
        size: Qt.size(Math.ceil(window.contentSize.width), Math.ceil(window.contentSize.height))
    }

    palette {
        window: Theme.palette.window
        windowText: Theme.palette.windowText
        base: Theme.palette.base
        alternateBase: Theme.palette.alternateBase
        text: Theme.palette.text
        button: Theme.palette.button
        buttonText: Theme.palette.buttonText
        light: Theme.palette.light
        midlight: Theme.palette.midlight
        mid: Theme.palette.mid
        dark: Theme.palette.dark
        shadow: Theme.palette.shadow
        highlight: Theme.palette.highlight
        highlightedText: Theme.palette.highlightedText
        placeholderText: Theme.palette.placeholderText
    }
}
