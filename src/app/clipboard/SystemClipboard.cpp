#include "app/clipboard/SystemClipboard.h"

#include "app/clipboard/DataControlClipboardBackend.h"
#include "app/clipboard/FocusClipboardBackend.h"
#include "app/clipboard/QtClipboardBackend.h"
#include "app/clipboard/X11ClipboardBackend.h"

#include <QGuiApplication>
#include <QPointer>

#include <memory>

namespace {

std::unique_ptr<ClipboardBackend> backendForThisDesktop() {
    const QString platform = QGuiApplication::platformName();
    if (platform == QLatin1String("xcb"))
        return std::make_unique<X11ClipboardBackend>();
    if (!platform.startsWith(QLatin1String("wayland")))
        return std::make_unique<QtClipboardBackend>();
    if (auto dataControl = DataControlClipboardBackend::connectToCompositor())
        return dataControl;
    return std::make_unique<FocusClipboardBackend>();
}

QPointer<ClipboardBackend>& currentBackend() {
    static QPointer<ClipboardBackend> backend;
    return backend;
}

} // namespace

ClipboardBackend& SystemClipboard::backend() {
    // Made on first use and kept until the application object goes, which takes it along
    // while the connections it uses are still there.
    QPointer<ClipboardBackend>& backend = currentBackend();
    if (!backend)
        setBackend(backendForThisDesktop().release());
    return *backend;
}

void SystemClipboard::setBackend(ClipboardBackend* backend) {
    delete currentBackend().data();
    currentBackend() = backend;
    if (backend)
        backend->setParent(qApp);
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

bool SystemClipboard::readableInBackground() {
    return backend().readableInBackground();
}

bool SystemClipboard::announcesEveryChange() {
    return backend().announcesEveryChange();
}

void SystemClipboard::whenChanged(QObject* context, std::function<void()> changed) {
    QObject::connect(&backend(), &ClipboardBackend::changed, context, std::move(changed));
}
