#pragma once

#include "app/hotkey/HotKeyBackend.h"

#include <QAbstractNativeEventFilter>

#include <xcb/xcb.h>

#include <cstdint>
#include <vector>

// The hot key on an X11 desktop: a passive grab of the key on every root window, picked up from
// Qt's own X connection through a native event filter.
class X11HotKeyBackend : public HotKeyBackend, public QAbstractNativeEventFilter {
    Q_OBJECT
public:
    // The connection must stay open for the life of the backend (it is Qt's own).
    explicit X11HotKeyBackend(xcb_connection_t* connection, QObject* parent = nullptr);
    ~X11HotKeyBackend() override;

    void registerHotKey(QKeyCombination key) override;
    void unregisterHotKey() override;

    bool nativeEventFilter(const QByteArray& eventType, void* message, qintptr* result) override;

    // The X modifier state for Qt's modifiers: Meta is the Super key (Mod4), as Qt maps it on
    // X11. Modifiers other than Ctrl, Alt, Shift and Meta are dropped.
    static std::uint16_t x11Modifiers(Qt::KeyboardModifiers modifiers);

private:
    struct Grab {
        xcb_window_t root;
        xcb_keycode_t keycode;
        std::uint16_t modifiers;
    };

    std::uint16_t numLockMask() const;
    void ungrab(const std::vector<Grab>& grabs);

    xcb_connection_t* m_connection;
    std::vector<Grab> m_grabs;
    std::uint16_t m_modifiers = 0;
    // Lock modifiers that do not change the meaning of the key.
    std::uint16_t m_ignoredModifiers = 0;
};
