#include "app/tray/DBusMenuLayoutItem.h"

#include <QDBusVariant>

QDBusArgument& operator<<(QDBusArgument& argument, const DBusMenuLayoutItem& item) {
    argument.beginStructure();
    argument << item.id << item.properties;
    argument.beginArray(QMetaType::fromType<QDBusVariant>());
    for (const DBusMenuLayoutItem& child : item.children)
        argument << QDBusVariant(QVariant::fromValue(child));
    argument.endArray();
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, DBusMenuLayoutItem& item) {
    argument.beginStructure();
    argument >> item.id >> item.properties;
    item.children.clear();
    argument.beginArray();
    while (!argument.atEnd()) {
        QDBusVariant wrapped;
        argument >> wrapped;
        DBusMenuLayoutItem child;
        wrapped.variant().value<QDBusArgument>() >> child;
        item.children.append(child);
    }
    argument.endArray();
    argument.endStructure();
    return argument;
}
