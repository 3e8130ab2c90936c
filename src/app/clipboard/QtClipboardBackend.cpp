#include "app/clipboard/QtClipboardBackend.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QMimeData>

QtClipboardBackend::QtClipboardBackend() {
    connect(QGuiApplication::clipboard(), &QClipboard::dataChanged, this,
            &ClipboardBackend::changed);
}

void QtClipboardBackend::setText(const QString& text) {
    QGuiApplication::clipboard()->setText(text);
}

bool QtClipboardBackend::announcesEveryChange() const {
    // The X server tells of every new owner of the clipboard (XFixes), and a program that copies
    // always takes it anew; macOS and Windows are asked only when read.
    return QGuiApplication::platformName() == QLatin1String("xcb");
}

std::optional<QString> QtClipboardBackend::text() {
    // Plain text only: addresses copied as files or URL lists are not looked at. Asked of the
    // clipboard's data directly: QClipboard::text() first lists every format the clipboard could
    // give, image formats included, which loads all of Qt's image plugins.
    const QMimeData* data = QGuiApplication::clipboard()->mimeData();
    if (!data || !data->hasFormat(QStringLiteral("text/plain")))
        return QString();
    return data->text();
}
