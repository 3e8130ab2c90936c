#pragma once

#include <QDBusArgument>
#include <QList>
#include <QMetaType>
#include <QVariantMap>

// One menu entry's properties in the com.canonical.dbusmenu protocol, D-Bus type (ia{sv}).
struct DBusMenuItem {
    int id = 0;
    QVariantMap properties;
};

using DBusMenuItemList = QList<DBusMenuItem>;

QDBusArgument& operator<<(QDBusArgument& argument, const DBusMenuItem& item);
const QDBusArgument& operator>>(const QDBusArgument& argument, DBusMenuItem& item);

Q_DECLARE_METATYPE(DBusMenuItem)
