#pragma once

#include <QObject>

class QDBusMessage;

namespace limitra {

// Follows the desktop's light or dark preference, as the desktop portal tells it
// (GNOME, KDE and most others run one). Qt 6.4 itself reads that preference on no
// desktop but KDE, so a dark GNOME or XFCE session would otherwise get light windows.
// Only a dark preference over a light platform palette changes anything: a theme
// that is dark already stays as the platform drew it.
class DesktopColorScheme : public QObject
{
    Q_OBJECT

public:
    explicit DesktopColorScheme(QObject* parent = nullptr);

    // Asks the portal without waiting for it, and applies each answer and change.
    void follow();

    // The palette used for a dark preference.
    static QPalette darkPalette();

private Q_SLOTS:
    // SettingChanged(group, key, value); a message, since the value's variant type is only
    // known to the bus once QtDBus has set itself up.
    void onSettingChanged(const QDBusMessage& change);

private:
    // 0: no preference, 1: dark, 2: light.
    void apply(uint scheme);

    bool m_darkened = false;
};

} // namespace limitra
