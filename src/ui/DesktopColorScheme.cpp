#include "ui/DesktopColorScheme.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <QGuiApplication>
#include <QPalette>

namespace limitra {

namespace {
const QString kPortal = QStringLiteral("org.freedesktop.portal.Desktop");
const QString kPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString kSettings = QStringLiteral("org.freedesktop.portal.Settings");
const QString kGroup = QStringLiteral("org.freedesktop.appearance");
const QString kKey = QStringLiteral("color-scheme");

// Older portals wrap the value in one variant more than newer ones.
uint schemeOf(QVariant value)
{
    while (value.metaType() == QMetaType::fromType<QDBusVariant>())
        value = value.value<QDBusVariant>().variant();
    bool ok = false;
    const uint scheme = value.toUInt(&ok);
    return ok && scheme <= 2 ? scheme : 0;
}
} // namespace

DesktopColorScheme::DesktopColorScheme(QObject* parent)
    : QObject(parent)
{
}

void DesktopColorScheme::follow()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return;
    bus.connect(kPortal, kPath, kSettings, QStringLiteral("SettingChanged"), this,
        SLOT(onSettingChanged(QDBusMessage)));
    QDBusMessage read = QDBusMessage::createMethodCall(kPortal, kPath, kSettings, QStringLiteral("Read"));
    read << kGroup << kKey;
    // Never waited for: a portal being started by the bus must not hold up the tray.
    auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(read), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* call) {
        const QDBusPendingReply<QDBusVariant> reply = *call;
        if (!reply.isError())
            apply(schemeOf(QVariant::fromValue(reply.value())));
        call->deleteLater();
    });
}

void DesktopColorScheme::onSettingChanged(const QDBusMessage& change)
{
    const QVariantList args = change.arguments();
    if (args.size() == 3 && args[0] == kGroup && args[1] == kKey)
        apply(schemeOf(args[2]));
}

void DesktopColorScheme::apply(uint scheme)
{
    if (scheme == 1 && !m_darkened
        && QGuiApplication::palette().color(QPalette::Window).lightnessF() >= 0.5) {
        QGuiApplication::setPalette(darkPalette());
        m_darkened = true;
    } else if (scheme != 1 && m_darkened) {
        QGuiApplication::setPalette(QPalette()); // the platform's own again
        m_darkened = false;
    }
}

QPalette DesktopColorScheme::darkPalette()
{
    const QColor text(0xec, 0xec, 0xec), window(0x2b, 0x2b, 0x2d), base(0x1e, 0x1e, 0x20);
    const QColor button(0x3a, 0x3a, 0x3d), disabled(0x80, 0x80, 0x84);
    QPalette p(text, button, button.lighter(130), base, button.darker(120), text, Qt::white, base, window);
    p.setColor(QPalette::AlternateBase, window.lighter(110));
    p.setColor(QPalette::Highlight, QColor(0x35, 0x84, 0xe4));
    p.setColor(QPalette::HighlightedText, Qt::white);
    p.setColor(QPalette::Link, QColor(0x62, 0xa0, 0xea));
    p.setColor(QPalette::ToolTipBase, base);
    p.setColor(QPalette::ToolTipText, text);
    p.setColor(QPalette::PlaceholderText, disabled);
    for (const QPalette::ColorRole role : { QPalette::WindowText, QPalette::Text, QPalette::ButtonText })
        p.setColor(QPalette::Disabled, role, disabled);
    return p;
}

} // namespace limitra
