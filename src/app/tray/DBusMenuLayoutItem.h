#pragma once

#include <QDBusArgument>
#include <QList>
#include <QMetaType>
#include <QVariantMap>

// A menu entry with the entries below it, as com.canonical.dbusmenu lays a menu out, D-Bus type
// (ia{sv}av): id, properties, and each child wrapped in a variant.
struct DBusMenuLayoutItem {
    int id = 0;
    QVariantMap properties;
    QList<DBusMenuLayoutItem> children;
};

QDBusArgument& operator<<(QDBusArgument& argument, const DBusMenuLayoutItem& item);
const QDBusArgument& operator>>(const QDBusArgument& argument, DBusMenuLayoutItem& item);

Q_DECLARE_METATYPE(DBusMenuLayoutItem)
