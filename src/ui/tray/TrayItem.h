#pragma once

#include "ui/tray/DBusMenu.h"

#include <QObject>
#include <QPoint>
#include <QString>

#include <memory>

class QMenu;
class QSystemTrayIcon;

namespace limitra {

class StatusNotifierItem;
class UsageStore;

// The program's tray item: the gauge with the menu bar text. Shown as a
// StatusNotifierItem where a watcher exists (registered again whenever the
// watcher restarts or drops it), else through the desktop's XEmbed tray, else nowhere.
// Label, tooltip and icon follow the store and the display settings at once.
class TrayItem : public QObject
{
    Q_OBJECT

public:
    enum class Host { None, StatusNotifier, SystemTray };
    Q_ENUM(Host)

    explicit TrayItem(UsageStore& store, QObject* parent = nullptr);
    ~TrayItem() override;

    // Puts the item on the session bus (or in the fallback tray).
    void install();
    Host host() const { return m_host; }
    // The bus name the item is registered under, e.g. org.kde.StatusNotifierItem-4242-1.
    QString serviceName() const { return m_serviceName; }

    // The label and the text of the tooltip, as hosts get them.
    QString label() const;
    QString labelGuide() const;
    QString toolTipText() const;
    // The menu's first lines: each shown service's limits as the panel shows
    // them, or its error, e.g. "Claude Code · Sesión de 5 h — 63 % restante · 2h 5m".
    QStringList limitLines() const;

Q_SIGNALS:
    // A click on the item; (0, 0) when the host gave no point.
    void activated(QPoint point);
    void actionTriggered(limitra::TrayAction action);
    void hostChanged();

private Q_SLOTS:
    void onItemUnregistered(const QString& item);

private:
    void update();
    void registerWithWatcher();
    void useFallback();
    void setHost(Host host);
    void showMenu(QPoint point);
    QMenu& menu();
    void fillMenu();

    UsageStore& m_store;
    StatusNotifierItem* m_item;
    DBusMenu* m_dbusMenu;
    QString m_serviceName;
    QString m_themePath;
    Host m_host = Host::None;
    bool m_saidNoTray = false;
    int m_comebacks = 0;
    std::unique_ptr<QSystemTrayIcon> m_fallback;
    std::unique_ptr<QMenu> m_menu;
};

} // namespace limitra
