#pragma once

#include <QDBusArgument>
#include <QList>
#include <QMetaType>
#include <QStringList>

// The properties of one menu entry that went back to their defaults, as com.canonical.dbusmenu
// announces them, D-Bus type (ias): entry id and property names.
struct DBusMenuItemKeys {
    int id = 0;
    QStringList properties;
};

using DBusMenuItemKeysList = QList<DBusMenuItemKeys>;

QDBusArgument& operator<<(QDBusArgument& argument, const DBusMenuItemKeys& item);
const QDBusArgument& operator>>(const QDBusArgument& argument, DBusMenuItemKeys& item);

Q_DECLARE_METATYPE(DBusMenuItemKeys)
