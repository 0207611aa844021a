#include "ui/tray/DBusMenu.h"

namespace limitra {

namespace {
// Entry ids: the root is 0, the actions count from 1, the separator before
// "Salir" takes the id after them, the one below the limits the next, and the
// limit lines count on from there.
constexpr int kRoot = 0;
constexpr int kActions = 4;
constexpr int kQuitSeparator = kActions + 1;
constexpr int kLimitsSeparator = kActions + 2;
constexpr int kFirstLimit = kActions + 3;

// A lone underscore marks the access key; data such as a limit's title may hold one.
QString escaped(const QString& label)
{
    return QString(label).replace(u'_', QStringLiteral("__"));
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

DBusMenu::DBusMenu(std::function<void(TrayAction)> onChosen, QObject* parent)
    : QObject(parent)
    , m_onChosen(std::move(onChosen))
{
    Q_ASSERT(trayMenuEntries().size() == kActions);
    registerSniTypes();
}

void DBusMenu::setLimits(const QStringList& lines)
{
    if (lines == m_limits)
        return;
    m_limits = lines;
    Q_EMIT LayoutUpdated(++m_revision, kRoot);
}

QList<int> DBusMenu::layoutIds() const
{
    QList<int> ids;
    for (int i = 0; i < m_limits.size(); ++i)
        ids.append(kFirstLimit + i);
    if (!m_limits.isEmpty())
        ids.append(kLimitsSeparator);
    for (int id = 1; id <= kActions; ++id) {
        if (id == kActions)
            ids.append(kQuitSeparator);
        ids.append(id);
    }
    return ids;
}

QVariantMap DBusMenu::properties(int id) const
{
    if (id == kRoot)
        return { { QStringLiteral("children-display"), QStringLiteral("submenu") } };
    if (id == kQuitSeparator || id == kLimitsSeparator)
        return { { QStringLiteral("type"), QStringLiteral("separator") } };
    QString label;
    if (id >= 1 && id <= kActions)
        label = trayMenuEntries().at(id - 1).label;
    else if (id >= kFirstLimit && id - kFirstLimit < m_limits.size())
        label = escaped(m_limits.at(id - kFirstLimit));
    else
        return {};
    return { { QStringLiteral("label"), label }, { QStringLiteral("enabled"), true },
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
    return m_revision;
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
    if (eventId != QLatin1String("clicked"))
        return;
    if (id >= 1 && id <= kActions)
        m_onChosen(trayMenuEntries().at(id - 1).action);
    else if (id >= kFirstLimit && id - kFirstLimit < m_limits.size())
        m_onChosen(TrayAction::Panel);
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
