#pragma once

#include <QByteArray>
#include <QDBusArgument>
#include <QIcon>
#include <QList>
#include <QMetaType>

// One icon image as StatusNotifierItem panels take it, D-Bus type (iiay): width, height and
// the pixels as ARGB32 in network byte order.
struct DBusImage {
    int width = 0;
    int height = 0;
    QByteArray pixels;

    // The icon drawn at each of the sizes that panels commonly use.
    static QList<DBusImage> fromIcon(const QIcon& icon);
};

using DBusImageList = QList<DBusImage>;

QDBusArgument& operator<<(QDBusArgument& argument, const DBusImage& image);
const QDBusArgument& operator>>(const QDBusArgument& argument, DBusImage& image);

Q_DECLARE_METATYPE(DBusImage)
