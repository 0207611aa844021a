#include "ui/tray/DBusMenu.h"

namespace limitra {

namespace {
// Entry ids: the root is 0, the entries count from 1 and the separator
// takes the id after them.
constexpr int kRoot = 0;

int separatorId()
{
    return int(trayMenuEntries().size()) + 1;
}

QList<int> layoutIds()
{
    QList<int> ids;
    for (int i = 1; i <= trayMenuEntries().size(); ++i) {
        if (i == trayMenuEntries().size())
            ids.append(separatorId());
        ids.append(i);
    }
    return ids;
}

QVariantMap only(const QVariantMap& all, const QStringList& names)
{
    if (names.isEmpty())
        return all;
    QVariantMap some;
    for (const QString& name : names)
        if (all.contains(name))
            some.insert(name, all.value(name));
    return some;
}
} // namespace

QList<TrayMenuEntry> trayMenuEntries()
{
    return {
        { TrayAction::Panel, QStringLiteral("Límites") },
        { TrayAction::Refresh, QStringLiteral("Actualizar ahora") },
        { TrayAction::Settings, QStringLiteral("Ajustes") },
        { TrayAction::Quit, QStringLiteral("Salir") },
    };
}

DBusMenu::DBusMenu(QObject* parent)
    : QObject(parent)
{
    registerSniTypes();
}

QVariantMap DBusMenu::properties(int id) const
{
    if (id == kRoot)
        return { { QStringLiteral("children-display"), QStringLiteral("submenu") } };
    if (id == separatorId())
        return { { QStringLiteral("type"), QStringLiteral("separator") } };
    const QList<TrayMenuEntry> entries = trayMenuEntries();
    if (id < 1 || id > entries.size())
        return {};
    return { { QStringLiteral("label"), entries.at(id - 1).label }, { QStringLiteral("enabled"), true },
        { QStringLiteral("visible"), true } };
}

uint DBusMenu::GetLayout(
    int parentId, int recursionDepth, const QStringList& propertyNames, MenuLayout& layout)
{
    layout = { parentId, only(properties(parentId), propertyNames), {} };
    if (parentId == kRoot && recursionDepth != 0) {
        for (int id : layoutIds()) {
            const MenuLayout child { id, only(properties(id), propertyNames), {} };
            layout.children.append(QVariant::fromValue(QDBusVariant(QVariant::fromValue(child))));
        }
    }
    return 1;
}

MenuItemPropertiesList DBusMenu::GetGroupProperties(const QList<int>& ids, const QStringList& propertyNames)
{
    MenuItemPropertiesList list;
    for (int id : ids)
        list.append({ id, only(properties(id), propertyNames) });
    return list;
}

QDBusVariant DBusMenu::GetProperty(int id, const QString& name)
{
    return QDBusVariant(properties(id).value(name));
}

void DBusMenu::Event(int id, const QString& eventId, const QDBusVariant&, uint)
{
    const QList<TrayMenuEntry> entries = trayMenuEntries();
    if (eventId == QLatin1String("clicked") && id >= 1 && id <= entries.size())
        Q_EMIT entryClicked(id - 1);
}

QList<int> DBusMenu::EventGroup(const MenuEvents& events)
{
    for (const MenuEvent& event : events)
        Event(event.id, event.eventId, event.data, event.timestamp);
    return {};
}

bool DBusMenu::AboutToShow(int)
{
    return false;
}

QList<int> DBusMenu::AboutToShowGroup(const QList<int>&, QList<int>& idErrors)
{
    idErrors.clear();
    return {};
}

} // namespace limitra
