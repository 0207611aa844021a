#pragma once

#include <QByteArray>
#include <QDBusArgument>
#include <QDBusVariant>
#include <QList>
#include <QString>
#include <QVariantMap>

namespace limitra {

// One image of a tray icon: ARGB32 pixels in network byte order, as hosts expect.
struct SniPixmap
{
    int width = 0;
    int height = 0;
    QByteArray argb;
};
using SniPixmaps = QList<SniPixmap>;

// The tooltip a host shows over the item.
struct SniToolTip
{
    QString iconName;
    SniPixmaps pixmaps;
    QString title;
    QString text;
};

// One entry of the item's menu and its children, as hosts read the menu layout.
struct MenuLayout
{
    int id = 0;
    QVariantMap properties;
    QVariantList children; // each a QDBusVariant holding a MenuLayout
};

// One entry's properties, for the menu's group reads.
struct MenuItemProperties
{
    int id = 0;
    QVariantMap properties;
};
using MenuItemPropertiesList = QList<MenuItemProperties>;

// One click or hover that a host reports for a menu entry.
struct MenuEvent
{
    int id = 0;
    QString eventId;
    QDBusVariant data;
    uint timestamp = 0;
};
using MenuEvents = QList<MenuEvent>;

// Makes the types above known to the bus; call before registering any object.
void registerSniTypes();

QDBusArgument& operator<<(QDBusArgument& arg, const SniPixmap& pixmap);
const QDBusArgument& operator>>(const QDBusArgument& arg, SniPixmap& pixmap);
QDBusArgument& operator<<(QDBusArgument& arg, const SniToolTip& tip);
const QDBusArgument& operator>>(const QDBusArgument& arg, SniToolTip& tip);
QDBusArgument& operator<<(QDBusArgument& arg, const MenuLayout& layout);
const QDBusArgument& operator>>(const QDBusArgument& arg, MenuLayout& layout);
QDBusArgument& operator<<(QDBusArgument& arg, const MenuItemProperties& item);
const QDBusArgument& operator>>(const QDBusArgument& arg, MenuItemProperties& item);
QDBusArgument& operator<<(QDBusArgument& arg, const MenuEvent& event);
const QDBusArgument& operator>>(const QDBusArgument& arg, MenuEvent& event);

} // namespace limitra

Q_DECLARE_METATYPE(limitra::SniPixmap)
Q_DECLARE_METATYPE(limitra::SniToolTip)
Q_DECLARE_METATYPE(limitra::MenuLayout)
Q_DECLARE_METATYPE(limitra::MenuItemProperties)
Q_DECLARE_METATYPE(limitra::MenuEvent)
