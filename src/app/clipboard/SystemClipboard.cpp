#include "app/clipboard/SystemClipboard.h"

#include "app/clipboard/DataControlClipboardBackend.h"
#include "app/clipboard/FocusClipboardBackend.h"
#include "app/clipboard/QtClipboardBackend.h"

#include <QGuiApplication>
#include <QPointer>

#include <memory>

namespace {

std::unique_ptr<ClipboardBackend> backendForThisDesktop() {
    if (!QGuiApplication::platformName().startsWith(QLatin1String("wayland")))
        return std::make_unique<QtClipboardBackend>();
    if (auto dataControl = DataControlClipboardBackend::connectToCompositor())
        return dataControl;
    return std::make_unique<FocusClipboardBackend>();
}

} // namespace

ClipboardBackend& SystemClipboard::backend() {
    // Made on first use and kept until the application object goes, which takes it along
    // while the connections it uses are still there.
    static QPointer<ClipboardBackend> backend;
    if (!backend) {
        backend = backendForThisDesktop().release();
        backend->setParent(qApp);
    }
    return *backend;
}

void SystemClipboard::setText(const QString& text) {
    backend().setText(text);
}

std::optional<QString> SystemClipboard::text() {
    return backend().text();
}

void SystemClipboard::readText(ClipboardBackend::Done done) {
    backend().readText(std::move(done));
}

void SystemClipboard::whenChanged(QObject* context, std::function<void()> changed) {
    QObject::connect(&backend(), &ClipboardBackend::changed, context, std::move(changed));
}
