#pragma once

#include "app/tray/DBusImage.h"

#include <QDBusArgument>
#include <QMetaType>
#include <QString>

// A StatusNotifierItem's tool tip, D-Bus type (sa(iiay)ss): icon name, icon images, title, text.
struct DBusToolTip {
    QString iconName;
    DBusImageList images;
    QString title;
    QString text;
};

QDBusArgument& operator<<(QDBusArgument& argument, const DBusToolTip& toolTip);
const QDBusArgument& operator>>(const QDBusArgument& argument, DBusToolTip& toolTip);

Q_DECLARE_METATYPE(DBusToolTip)
