#include "ui/tray/TrayItem.h"

#include "platform/Defaults.h"
#include "store/LimitLines.h"
#include "store/MenuBarText.h"
#include "store/UsageStore.h"
#include "ui/tray/GaugeIcon.h"
#include "ui/tray/StatusNotifierItem.h"

#include <QCoreApplication>
#include <QCursor>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusPendingCallWatcher>
#include <QDBusServiceWatcher>
#include <QIcon>
#include <QMenu>
#include <QPixmap>
#include <QSystemTrayIcon>
#include <QTimer>

#include <chrono>
#include <cstdio>

namespace limitra {

namespace {
const QString kWatcher = QStringLiteral("org.kde.StatusNotifierWatcher");
constexpr int kMaxComebacks = 5;

ServiceUsage full()
{
    return { {}, { LimitRow { QStringLiteral("full"), {}, 0, 0, {} } }, {}, {} };
}
} // namespace

TrayItem::TrayItem(UsageStore& store, QObject* parent)
    : QObject(parent)
    , m_store(store)
    , m_item(new StatusNotifierItem(this))
    , m_dbusMenu(new DBusMenu([this](TrayAction action) { Q_EMIT actionTriggered(action); }, this))
{
    m_item->setMenu(QDBusObjectPath(DBusMenu::kPath));
    connect(m_item, &StatusNotifierItem::activated, this, [this](int x, int y) {
        Q_EMIT activated({ x, y });
    });
    connect(m_item, &StatusNotifierItem::contextMenuRequested, this, [this](int x, int y) {
        showMenu({ x, y });
    });

    // The store tells of the four display settings through menuBarTextChanged;
    // its clock moves the menu's countdowns.
    for (auto signal : { &UsageStore::menuBarTextChanged, &UsageStore::claudeChanged,
             &UsageStore::codexChanged, &UsageStore::nowChanged })
        connect(&m_store, signal, this, &TrayItem::update);
    m_themePath = GaugeIcon::themePath();
    update();
}

TrayItem::~TrayItem()
{
    if (!m_serviceName.isEmpty())
        QDBusConnection::sessionBus().unregisterService(m_serviceName);
}

QString TrayItem::label() const
{
    return m_store.menuBarText();
}

QString TrayItem::labelGuide() const
{
    // The widest the label can get in the current style, so hosts keep its width steady.
    const auto& defaults = *m_store.environment().defaults;
    return MenuBarText::compose(full(), full(), m_store.showClaude(), m_store.showCodex(),
        defaults.menuBarStyle(), QStringLiteral("remaining"));
}

QString TrayItem::toolTipText() const
{
    const QString text = label();
    if (!text.isEmpty())
        return text;
    // Where the label says nothing, the tooltip still gives each shown service.
    return MenuBarText::compose(m_store.claude(), m_store.codex(), m_store.showClaude(), m_store.showCodex(),
        QStringLiteral("iconAndPercents"), m_store.environment().defaults->percentMode());
}

QStringList TrayItem::limitLines() const
{
    const PercentMode mode
        = PercentMode::fromRawValue(m_store.environment().defaults->percentMode()).value_or(PercentMode {});
    QStringList lines;
    if (m_store.showClaude())
        lines += LimitLines::of(
            QStringLiteral("Claude Code"), m_store.claude(), mode, m_store.now(), LimitLines::menu());
    if (m_store.showCodex())
        lines += LimitLines::of(
            QStringLiteral("Codex"), m_store.codex(), mode, m_store.now(), LimitLines::menu());
    return lines;
}

void TrayItem::update()
{
    const int step = GaugeIcon::stepOf(m_store);
    if (GaugeIcon::name(step) != m_item->iconName())
        m_item->setIcon(GaugeIcon::name(step), m_themePath, GaugeIcon::pixmaps(step));
    m_item->setLabel(label(), labelGuide());
    m_item->setToolTipText(toolTipText());
    if (const QStringList lines = limitLines(); lines != m_dbusMenu->limits()) {
        m_dbusMenu->setLimits(lines);
        if (m_menu)
            fillMenu();
    }
    if (m_fallback) {
        m_fallback->setIcon(QIcon(QPixmap::fromImage(GaugeIcon::image(step, 48))));
        m_fallback->setToolTip(
            QStringList { QStringLiteral("Limitra"), toolTipText() }.join(u'\n').trimmed());
    }
}

void TrayItem::install()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        useFallback();
        return;
    }
    static int counter = 0;
    m_serviceName = QStringLiteral("org.kde.StatusNotifierItem-%1-%2")
                        .arg(QCoreApplication::applicationPid())
                        .arg(++counter);
    const auto exports = QDBusConnection::ExportAllProperties | QDBusConnection::ExportScriptableSlots
        | QDBusConnection::ExportScriptableSignals;
    if (!bus.registerObject(StatusNotifierItem::kPath, m_item, exports)
        || !bus.registerObject(DBusMenu::kPath, m_dbusMenu, exports) || !bus.registerService(m_serviceName)) {
        useFallback();
        return;
    }
    bus.connect(kWatcher, QStringLiteral("/StatusNotifierWatcher"), kWatcher,
        QStringLiteral("StatusNotifierItemUnregistered"), this, SLOT(onItemUnregistered(QString)));
    // Panels restart; each new watcher must learn of the item again.
    auto* watcher = new QDBusServiceWatcher(kWatcher, bus, QDBusServiceWatcher::WatchForOwnerChange, this);
    connect(watcher, &QDBusServiceWatcher::serviceOwnerChanged, this,
        [this](const QString&, const QString&, const QString& owner) {
            if (!owner.isEmpty())
                registerWithWatcher();
        });
    registerWithWatcher();
}

void TrayItem::onItemUnregistered(const QString& item)
{
    // A host may drop an item it failed to set up: GNOME's AppIndicator
    // extension does so for items that come while the shell is still starting,
    // as items started with the session do. This one is still here, so it asks
    // again, a few times, each later than the last.
    // KDE's watcher names items with their path after the bus name.
    const bool ours = item == m_serviceName || item.startsWith(m_serviceName + u'/');
    if (!ours || m_comebacks >= kMaxComebacks)
        return;
    QTimer::singleShot(std::chrono::seconds(1 << m_comebacks++), this, &TrayItem::registerWithWatcher);
}

void TrayItem::registerWithWatcher()
{
    QDBusMessage call = QDBusMessage::createMethodCall(kWatcher, QStringLiteral("/StatusNotifierWatcher"),
        kWatcher, QStringLiteral("RegisterStatusNotifierItem"));
    call << m_serviceName;
    auto* pending = new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(call, 5000), this);
    connect(pending, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* done) {
        done->deleteLater();
        if (done->isError()) {
            if (m_host != Host::StatusNotifier)
                useFallback();
            return;
        }
        m_fallback.reset();
        setHost(Host::StatusNotifier);
    });
}

void TrayItem::useFallback()
{
    if (!QSystemTrayIcon::isSystemTrayAvailable()) {
        if (!m_saidNoTray)
            std::fputs(
                "limitra: no hay bandeja del sistema en este escritorio; Limitra sigue en marcha.\n", stderr);
        m_saidNoTray = true;
        setHost(Host::None);
        return;
    }
    if (!m_fallback) {
        m_fallback = std::make_unique<QSystemTrayIcon>();
        m_fallback->setContextMenu(&menu());
        connect(m_fallback.get(), &QSystemTrayIcon::activated, this,
            [this](QSystemTrayIcon::ActivationReason why) {
                if (why == QSystemTrayIcon::Trigger || why == QSystemTrayIcon::MiddleClick) {
                    const QRect icon = m_fallback->geometry();
                    Q_EMIT activated(icon.isValid() ? QPoint(icon.center().x(), icon.bottom()) : QPoint());
                }
            });
        update();
        m_fallback->show();
    }
    setHost(Host::SystemTray);
}

void TrayItem::setHost(Host host)
{
    if (host == m_host)
        return;
    m_host = host;
    Q_EMIT hostChanged();
}

QMenu& TrayItem::menu()
{
    if (!m_menu) {
        m_menu = std::make_unique<QMenu>();
        fillMenu();
    }
    return *m_menu;
}

// The same entries as the bus menu, for the XEmbed tray.
void TrayItem::fillMenu()
{
    m_menu->clear();
    for (const QString& line : m_dbusMenu->limits())
        m_menu->addAction(QString(line).replace(u'&', QStringLiteral("&&")), this,
            [this] { Q_EMIT actionTriggered(TrayAction::Panel); });
    if (!m_menu->isEmpty())
        m_menu->addSeparator();
    for (const TrayMenuEntry& entry : trayMenuEntries()) {
        if (entry.action == TrayAction::Quit)
            m_menu->addSeparator();
        const TrayAction action = entry.action;
        m_menu->addAction(entry.label, this, [this, action] { Q_EMIT actionTriggered(action); });
    }
}

void TrayItem::showMenu(QPoint point)
{
    menu().popup(point.isNull() ? QCursor::pos() : point);
}

} // namespace limitra
