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

std::optional<QString> QtClipboardBackend::text() {
    // Plain text only: addresses copied as files or URL lists are not looked at (QMimeData gives
    // a URL list as its text when it has no text).
    const QMimeData* data = QGuiApplication::clipboard()->mimeData();
    if (!data || !data->hasFormat(QStringLiteral("text/plain")))
        return QString();
    return data->text();
}
