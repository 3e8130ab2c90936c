#include "app/tray/DBusImage.h"

#include <QImage>
#include <QtEndian>

QList<DBusImage> DBusImage::fromIcon(const QIcon& icon) {
    QList<DBusImage> images;
    for (const int size : {16, 22, 24, 32, 48, 64}) {
        const QImage image =
            icon.pixmap(size, size).toImage().convertToFormat(QImage::Format_ARGB32);
        if (image.isNull())
            continue;
        DBusImage entry{image.width(), image.height(), {}};
        entry.pixels.resize(qsizetype(image.width()) * image.height() * 4);
        auto* out = reinterpret_cast<quint32*>(entry.pixels.data());
        for (int y = 0; y < image.height(); ++y) {
            const auto* line = reinterpret_cast<const quint32*>(image.constScanLine(y));
            for (int x = 0; x < image.width(); ++x)
                *out++ = qToBigEndian(line[x]);
        }
        images.append(entry);
    }
    return images;
}

QDBusArgument& operator<<(QDBusArgument& argument, const DBusImage& image) {
    argument.beginStructure();
    argument << image.width << image.height << image.pixels;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, DBusImage& image) {
    argument.beginStructure();
    argument >> image.width >> image.height >> image.pixels;
    argument.endStructure();
    return argument;
}
