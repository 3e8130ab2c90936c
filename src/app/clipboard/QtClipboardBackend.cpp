#include "app/clipboard/QtClipboardBackend.h"

#include <QClipboard>
#include <QGuiApplication>

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
    // Plain text only: addresses copied as files or URL lists are not looked at.
    QString subtype = QStringLiteral("plain");
    return QGuiApplication::clipboard()->text(subtype);
}
