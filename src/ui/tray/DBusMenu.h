#pragma once

#include "ui/tray/SniTypes.h"

#include <QObject>
#include <QStringList>

#include <functional>

namespace limitra {

// What the tray item's menu offers.
enum class TrayAction { Panel, Refresh, Settings, Quit };

struct TrayMenuEntry
{
    TrayAction action;
    QString label;
};
// The actions, in order; a separator stands before "Salir".
QList<TrayMenuEntry> trayMenuEntries();

// The item's menu for hosts that draw it themselves (com.canonical.dbusmenu):
// Ayatana hosts show it on a click and will not show an item without one.
// Hosts such as GNOME's open it on a left click, where others open the panel,
// so it starts with the limits themselves: one line each, above the actions.
class DBusMenu : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.canonical.dbusmenu")
    Q_PROPERTY(uint Version READ version)
    Q_PROPERTY(QString TextDirection READ textDirection)
    Q_PROPERTY(QString Status READ status)
    Q_PROPERTY(QStringList IconThemePath READ iconThemePath)

public:
    static inline const QString kPath = QStringLiteral("/MenuBar");

    // onChosen hears the chosen entry's action; a limit line opens the panel.
    explicit DBusMenu(std::function<void(TrayAction)> onChosen, QObject* parent = nullptr);

    uint version() const { return 3; }
    QString textDirection() const { return QStringLiteral("ltr"); }
    QString status() const { return QStringLiteral("normal"); }
    QStringList iconThemePath() const { return {}; }

    // The lines above the actions; a change is a new layout revision for the hosts.
    void setLimits(const QStringList& lines);
    QStringList limits() const { return m_limits; }

public Q_SLOTS:
    Q_SCRIPTABLE uint GetLayout(
        int parentId, int recursionDepth, const QStringList& propertyNames, limitra::MenuLayout& layout);
    Q_SCRIPTABLE limitra::MenuItemPropertiesList GetGroupProperties(
        const QList<int>& ids, const QStringList& propertyNames);
    Q_SCRIPTABLE QDBusVariant GetProperty(int id, const QString& name);
    Q_SCRIPTABLE void Event(int id, const QString& eventId, const QDBusVariant& data, uint timestamp);
    Q_SCRIPTABLE QList<int> EventGroup(const limitra::MenuEvents& events);
    Q_SCRIPTABLE bool AboutToShow(int id);
    Q_SCRIPTABLE QList<int> AboutToShowGroup(const QList<int>& ids, QList<int>& idErrors);

Q_SIGNALS:
    Q_SCRIPTABLE void LayoutUpdated(uint revision, int parent);
    Q_SCRIPTABLE void ItemActivationRequested(int id, uint timestamp);

private:
    QVariantMap properties(int id) const;
    QList<int> layoutIds() const;

    // A callback, not a signal: the bus would try to relay every signal of the object.
    std::function<void(TrayAction)> m_onChosen;
    QStringList m_limits;
    uint m_revision = 1;
};

} // namespace limitra
