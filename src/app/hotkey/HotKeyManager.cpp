#include "app/hotkey/HotKeyManager.h"

#include "app/hotkey/NoHotKeyBackend.h"
#include "app/hotkey/portal/PortalHotKeyBackend.h"
#include "app/hotkey/x11/X11HotKeyBackend.h"
#include "config/KeyCodeTable.h"

#include <QDBusConnection>
#include <QGuiApplication>

#include <utility>

namespace {

std::unique_ptr<HotKeyBackend> backendForThisDesktop() {
    const QString platform = QGuiApplication::platformName();
    if (platform == QLatin1String("xcb")) {
        // Under other platforms Qt may still hand out an X11 interface, with a null connection.
        if (const auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>()) {
            if (xcb_connection_t* connection = x11->connection())
                return std::make_unique<X11HotKeyBackend>(connection);
        }
    }
    if (platform.startsWith(QLatin1String("wayland")))
        return std::make_unique<PortalHotKeyBackend>(QDBusConnection::sessionBus());
    return std::make_unique<NoHotKeyBackend>();
}

} // namespace

HotKeyManager::HotKeyManager(QObject* parent)
    : HotKeyManager(backendForThisDesktop(), parent) {}

HotKeyManager::HotKeyManager(std::unique_ptr<HotKeyBackend> backend, QObject* parent)
    : QObject(parent)
    , m_backend(std::move(backend)) {
    connect(m_backend.get(), &HotKeyBackend::pressed, this, &HotKeyManager::handlePressed);
}

HotKeyManager::~HotKeyManager() {
    if (m_registered)
        m_backend->unregisterHotKey();
}

void HotKeyManager::update(const std::optional<ShortcutConfig>& shortcut, Action action) {
    m_action = std::move(action);
    if (m_registered) {
        m_backend->unregisterHotKey();
        m_registered = false;
    }
    if (!shortcut)
        return;
    m_backend->registerHotKey(hotKey(*shortcut));
    m_registered = true;
}

void HotKeyManager::handlePressed() {
    // The press is only noted here; the action runs from the event loop and is read then, so an
    // update between the press and the run takes effect.
    QMetaObject::invokeMethod(
        this,
        [this] {
            if (!m_action)
                return;
            // A copy: the action may call update(), which replaces m_action while it runs.
            const Action action = m_action;
            action();
        },
        Qt::QueuedConnection);
}

QKeyCombination HotKeyManager::hotKey(const ShortcutConfig& shortcut) {
    const std::optional<int> key = KeyCodeTable::qtKey(shortcut.keyCode);
    return QKeyCombination(KeyCodeTable::qtModifiers(shortcut.modifierFlags),
                           key ? Qt::Key(*key) : Qt::Key_unknown);
}
