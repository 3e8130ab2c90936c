#pragma once

#include "app/hotkey/HotKeyBackend.h"

// For desktops without any global-shortcut facility that Quillmar can use: the key never fires.
// Users there bind the ShowMenu command of SingleInstance in their desktop's own settings.
class NoHotKeyBackend : public HotKeyBackend {
    Q_OBJECT
public:
    using HotKeyBackend::HotKeyBackend;

    void registerHotKey(QKeyCombination key) override;
    void unregisterHotKey() override;
};
