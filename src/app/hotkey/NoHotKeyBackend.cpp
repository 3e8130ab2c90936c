#include "app/hotkey/NoHotKeyBackend.h"

void NoHotKeyBackend::registerHotKey(const Registration& registration) {
    Q_UNUSED(registration);
}

void NoHotKeyBackend::unregisterHotKey() {}
