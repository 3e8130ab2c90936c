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

std::optional<QString> QtClipboardBackend::text() {
    // Plain text only: addresses copied as files or URL lists are not looked at.
    QString subtype = QStringLiteral("plain");
    return QGuiApplication::clipboard()->text(subtype);
}
