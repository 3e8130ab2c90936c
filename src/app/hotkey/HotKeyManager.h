#pragma once

#include "app/hotkey/HotKeyBackend.h"
#include "config/ShortcutConfig.h"

#include <QKeyCombination>
#include <QObject>

#include <functional>
#include <memory>
#include <optional>

// The one system-wide key that opens the menu. Holds at most one registration with the
// desktop; a press runs the current action on the event loop.
class HotKeyManager : public QObject {
    Q_OBJECT
public:
    using Action = std::function<void()>;

    // Uses the backend for the desktop this process runs on: an X11 key grab, the desktop
    // portal's global shortcuts on Wayland, nothing elsewhere.
    explicit HotKeyManager(QObject* parent = nullptr);
    explicit HotKeyManager(std::unique_ptr<HotKeyBackend> backend, QObject* parent = nullptr);
    ~HotKeyManager() override;

    // Replaces the action, gives back the previous key and registers the new one (none for an
    // absent shortcut). Never fails: a key the desktop refuses simply never fires.
    void update(const std::optional<ShortcutConfig>& shortcut, Action action);

    // The key the backends register for a shortcut of the configuration. Command is Ctrl and
    // control the Meta (Super) key, as Qt maps them on Linux; modifier bits other than the four
    // are dropped, and a key code without a Qt key is Qt::Key_unknown.
    static QKeyCombination hotKey(const ShortcutConfig& shortcut);

private:
    void handlePressed();

    std::unique_ptr<HotKeyBackend> m_backend;
    bool m_registered = false;
    Action m_action;
};
