#include "app/hotkey/HotKeyManager.h"

#include "app/hotkey/NoHotKeyBackend.h"
#include "app/hotkey/portal/PortalHotKeyBackend.h"
#include "app/hotkey/x11/X11HotKeyBackend.h"

#include <QDBusConnection>
#include <QGuiApplication>

#include <array>
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

constexpr std::array<std::pair<std::uint64_t, std::uint32_t>, 4> maskBits{{
    {ShortcutConfig::CommandFlag, HotKeyBackend::CommandMask},
    {ShortcutConfig::ShiftFlag, HotKeyBackend::ShiftMask},
    {ShortcutConfig::OptionFlag, HotKeyBackend::OptionMask},
    {ShortcutConfig::ControlFlag, HotKeyBackend::ControlMask},
}};

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
    m_backend->registerHotKey(
        {shortcut->keyCode, modifierMask(shortcut->modifierFlags), fourCC(u"qlMr"), hotKeyId});
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

std::uint32_t HotKeyManager::fourCC(QStringView text) {
    std::uint32_t value = 0;
    for (const uint scalar : text.toUcs4())
        value = (value << 8) | static_cast<std::uint32_t>(scalar);
    return value;
}

std::uint32_t HotKeyManager::modifierMask(std::uint64_t modifierFlags) {
    std::uint32_t mask = 0;
    for (const auto& [flag, bit] : maskBits) {
        if ((modifierFlags & flag) != 0)
            mask |= bit;
    }
    return mask;
}
