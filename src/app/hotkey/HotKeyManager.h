#pragma once

#include "app/hotkey/HotKeyBackend.h"
#include "config/ShortcutConfig.h"

#include <QObject>
#include <QStringView>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

// The one system-wide key that opens the menu. Holds at most one registration with the
// desktop; a press runs the current action on the event loop.
class HotKeyManager : public QObject {
    Q_OBJECT
public:
    using Action = std::function<void()>;

    // Identity of the one registration: signature "qlMr", id 1.
    static constexpr std::uint32_t hotKeyId = 1;

    // Uses the backend for the desktop this process runs on: an X11 key grab, the desktop
    // portal's global shortcuts on Wayland, nothing elsewhere.
    explicit HotKeyManager(QObject* parent = nullptr);
    explicit HotKeyManager(std::unique_ptr<HotKeyBackend> backend, QObject* parent = nullptr);
    ~HotKeyManager() override;

    // Replaces the action, gives back the previous key and registers the new one (none for an
    // absent shortcut). Never fails: a key the desktop refuses simply never fires.
    void update(const std::optional<ShortcutConfig>& shortcut, Action action);

    // Folds the characters into a 32-bit word, the first one ending in the top byte.
    static std::uint32_t fourCC(QStringView text);
    // The registration's modifier mask (HotKeyBackend's bits) for the configuration's modifier
    // bits; bits other than the four modifiers are dropped.
    static std::uint32_t modifierMask(std::uint64_t modifierFlags);

private:
    void handlePressed();

    std::unique_ptr<HotKeyBackend> m_backend;
    bool m_registered = false;
    Action m_action;
};
