#include "app/hotkey/NoHotKeyBackend.h"

void NoHotKeyBackend::registerHotKey(QKeyCombination key) {
    Q_UNUSED(key);
}

void NoHotKeyBackend::unregisterHotKey() {}
