#include "app/tray/DBusToolTip.h"

QDBusArgument& operator<<(QDBusArgument& argument, const DBusToolTip& toolTip) {
    argument.beginStructure();
    argument << toolTip.iconName << toolTip.images << toolTip.title << toolTip.text;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, DBusToolTip& toolTip) {
    argument.beginStructure();
    argument >> toolTip.iconName >> toolTip.images >> toolTip.title >> toolTip.text;
    argument.endStructure();
    return argument;
}
