#include "watch/TrayLink.h"

#include "store/TrayBus.h"
#include "store/UsageJson.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>

namespace limitra::TrayLink {

namespace {
// A tray that hangs must not stall the status bar.
constexpr int kTimeoutMs = 2000;

bool trayRuns(QDBusConnection& bus)
{
    return bus.isConnected() && bus.interface() && bus.interface()->isServiceRegistered(TrayBus::kService);
}

QDBusMessage call(const QString& method)
{
    return QDBusMessage::createMethodCall(TrayBus::kService, TrayBus::kPath, TrayBus::kInterface, method);
}
} // namespace

std::optional<std::pair<ServiceUsage, ServiceUsage>> records()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!trayRuns(bus))
        return std::nullopt;
    const QDBusMessage reply = bus.call(call(QStringLiteral("Records")), QDBus::Block, kTimeoutMs);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
        return std::nullopt;
    return UsageJson::parse(reply.arguments().constFirst().toString().toUtf8());
}

bool requestRefresh()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    return trayRuns(bus) && bus.send(call(QStringLiteral("Refresh")));
}

void onRecordsChanged(QObject* receiver, const char* slot)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (bus.isConnected())
        bus.connect(TrayBus::kService, TrayBus::kPath, TrayBus::kInterface, QStringLiteral("RecordsChanged"),
            receiver, slot);
}

} // namespace limitra::TrayLink
