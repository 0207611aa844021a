#include "ui/tray/SniTypes.h"

#include <QDBusMetaType>

#include <mutex>

namespace limitra {

void registerSniTypes()
{
    static std::once_flag once;
    std::call_once(once, [] {
        qDBusRegisterMetaType<SniPixmap>();
        qDBusRegisterMetaType<SniPixmaps>();
        qDBusRegisterMetaType<SniToolTip>();
        qDBusRegisterMetaType<MenuLayout>();
        qDBusRegisterMetaType<MenuItemProperties>();
        qDBusRegisterMetaType<MenuItemPropertiesList>();
        qDBusRegisterMetaType<MenuEvent>();
        qDBusRegisterMetaType<MenuEvents>();
        // The bus finds a slot's argument types by the names written in its
        // signature; EventGroup's is the alias, unknown to it otherwise.
        qRegisterMetaType<MenuEvents>("limitra::MenuEvents");
    });
}

QDBusArgument& operator<<(QDBusArgument& arg, const SniPixmap& pixmap)
{
    arg.beginStructure();
    arg << pixmap.width << pixmap.height << pixmap.argb;
    arg.endStructure();
    return arg;
}

const QDBusArgument& operator>>(const QDBusArgument& arg, SniPixmap& pixmap)
{
    arg.beginStructure();
    arg >> pixmap.width >> pixmap.height >> pixmap.argb;
    arg.endStructure();
    return arg;
}

QDBusArgument& operator<<(QDBusArgument& arg, const SniToolTip& tip)
{
    arg.beginStructure();
    arg << tip.iconName << tip.pixmaps << tip.title << tip.text;
    arg.endStructure();
    return arg;
}

const QDBusArgument& operator>>(const QDBusArgument& arg, SniToolTip& tip)
{
    arg.beginStructure();
    arg >> tip.iconName >> tip.pixmaps >> tip.title >> tip.text;
    arg.endStructure();
    return arg;
}

QDBusArgument& operator<<(QDBusArgument& arg, const MenuLayout& layout)
{
    arg.beginStructure();
    arg << layout.id << layout.properties;
    arg.beginArray(qMetaTypeId<QDBusVariant>());
    for (const QVariant& child : layout.children)
        arg << child.value<QDBusVariant>();
    arg.endArray();
    arg.endStructure();
    return arg;
}

const QDBusArgument& operator>>(const QDBusArgument& arg, MenuLayout& layout)
{
    arg.beginStructure();
    arg >> layout.id >> layout.properties;
    layout.children.clear();
    arg.beginArray();
    while (!arg.atEnd()) {
        QDBusVariant child;
        arg >> child;
        layout.children.append(QVariant::fromValue(child));
    }
    arg.endArray();
    arg.endStructure();
    return arg;
}

QDBusArgument& operator<<(QDBusArgument& arg, const MenuItemProperties& item)
{
    arg.beginStructure();
    arg << item.id << item.properties;
    arg.endStructure();
    return arg;
}

const QDBusArgument& operator>>(const QDBusArgument& arg, MenuItemProperties& item)
{
    arg.beginStructure();
    arg >> item.id >> item.properties;
    arg.endStructure();
    return arg;
}

QDBusArgument& operator<<(QDBusArgument& arg, const MenuEvent& event)
{
    arg.beginStructure();
    arg << event.id << event.eventId << event.data << event.timestamp;
    arg.endStructure();
    return arg;
}

const QDBusArgument& operator>>(const QDBusArgument& arg, MenuEvent& event)
{
    arg.beginStructure();
    arg >> event.id >> event.eventId >> event.data >> event.timestamp;
    arg.endStructure();
    return arg;
}

} // namespace limitra
