#include "app/wayland/XdgActivation.h"

#include <QEvent>
#include <QGuiApplication>
#include <QObject>
#include <QTimer>
#include <QWindow>

#include <utility>

namespace {

QString& keptToken() {
    static QString token;
    return token;
}

void activateNow(QWindow* window) {
    const QString token = std::exchange(keptToken(), QString());
    if (token.isEmpty())
        return;
    // Qt's Wayland platform takes the token from here when asked to activate a window, and
    // clears it.
    qputenv("XDG_ACTIVATION_TOKEN", token.toUtf8());
    window->requestActivate();
}

// Waits for the window's first exposure, then activates it once its content is committed.
class ExposeWatcher : public QObject {
public:
    explicit ExposeWatcher(QWindow* window)
        : QObject(window) {
        window->installEventFilter(this);
    }

    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() == QEvent::Expose) {
            auto* window = static_cast<QWindow*>(watched);
            if (window->isExposed()) {
                window->removeEventFilter(this);
                QTimer::singleShot(0, window, [window] { activateNow(window); });
                deleteLater();
            }
        }
        return false;
    }
};

} // namespace

void XdgActivation::setToken(const QString& token) {
    // Only a Wayland compositor takes these; elsewhere the variable would only reach the
    // programs Quillmar starts (the browser).
    if (QGuiApplication::platformName().startsWith(QLatin1String("wayland")))
        keptToken() = token;
}

void XdgActivation::activateWhenShown(QWindow* window) {
    if (!window || keptToken().isEmpty())
        return;
    if (window->isExposed())
        activateNow(window);
    else
        new ExposeWatcher(window);
}
