#include "ui/tray/TrayRecords.h"

#include "store/TrayBus.h"
#include "store/UsageJson.h"
#include "store/UsageStore.h"

#include <QDBusConnection>

namespace limitra {

TrayRecords::TrayRecords(UsageStore& store, QObject* parent)
    : QObject(parent)
    , m_store(store)
{
    connect(&m_store, &UsageStore::isRefreshingChanged, this, [this] {
        if (!m_store.isRefreshing())
            Q_EMIT RecordsChanged();
    });
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (bus.isConnected())
        bus.registerObject(TrayBus::kPath, this, QDBusConnection::ExportScriptableContents);
}

TrayRecords::~TrayRecords()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (bus.isConnected())
        bus.unregisterObject(TrayBus::kPath);
}

QString TrayRecords::Records() const
{
    return QString::fromUtf8(UsageJson::document(
        m_store.claude(), m_store.codex(), m_store.environment().now(), QJsonDocument::Compact));
}

void TrayRecords::Refresh()
{
    m_store.requestRefresh();
}

} // namespace limitra
