#include "ui/tray/SingleInstance.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDir>
#include <QLocalServer>
#include <QLocalSocket>
#include <QStandardPaths>

namespace limitra {

namespace {
QString socketPath()
{
    QString base = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    if (base.isEmpty())
        base = QDir::tempPath();
    return base + QStringLiteral("/limitra-instance");
}
} // namespace

SingleInstance::SingleInstance(QObject* parent)
    : QObject(parent)
{
}

SingleInstance::~SingleInstance()
{
    release();
}

void SingleInstance::release()
{
    if (m_server) {
        m_server.reset();
        return;
    }
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (bus.isConnected() && bus.interface()) {
        bus.unregisterObject(kPath);
        bus.unregisterService(kService);
    }
}

bool SingleInstance::claim()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || !bus.interface())
        return claimSocket();
    const auto reply = bus.interface()->registerService(
        kService, QDBusConnectionInterface::DontQueueService, QDBusConnectionInterface::DontAllowReplacement);
    if (reply.isValid() && reply.value() == QDBusConnectionInterface::ServiceRegistered) {
        bus.registerObject(kPath, this, QDBusConnection::ExportScriptableSlots);
        return true;
    }
    const QDBusMessage call = QDBusMessage::createMethodCall(
        kService, kPath, QStringLiteral("app.limitra.Instance"), QStringLiteral("ShowPanel"));
    bus.call(call, QDBus::Block, 3000);
    return false;
}

bool SingleInstance::claimSocket()
{
    const QString path = socketPath();
    QLocalSocket peer;
    peer.connectToServer(path);
    if (peer.waitForConnected(1000)) {
        peer.write("show\n");
        peer.waitForBytesWritten(1000);
        peer.disconnectFromServer();
        return false;
    }
    // Nobody answers: whatever socket file is left belongs to a process that ended.
    QLocalServer::removeServer(path);
    m_server = std::make_unique<QLocalServer>();
    m_server->setSocketOptions(QLocalServer::UserAccessOption);
    if (!m_server->listen(path))
        return true; // No way to coordinate; run rather than not at all.
    connect(m_server.get(), &QLocalServer::newConnection, this, [this] {
        while (QLocalSocket* socket = m_server->nextPendingConnection()) {
            connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
            ShowPanel();
        }
    });
    return true;
}

void SingleInstance::ShowPanel()
{
    Q_EMIT showPanelRequested();
}

} // namespace limitra
