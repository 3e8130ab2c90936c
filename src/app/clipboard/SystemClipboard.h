#pragma once

#include "app/clipboard/ClipboardBackend.h"

// The desktop's clipboard for the whole program, through the backend that works on this
// desktop: Qt's own on X11 (and macOS, Windows), the data-control protocol on Wayland
// compositors that offer it, a brief focused window on the other Wayland compositors.
class SystemClipboard {
public:
    static void setText(const QString& text);
    // The plain text now; none when it cannot be read at this moment (a Wayland compositor that
    // shows the clipboard only to the program with the focus).
    static std::optional<QString> text();
    static void readText(ClipboardBackend::Done done);
    // Whether text() tells the clipboard while a panel's menu holds the keyboard.
    static bool readableInBackground();
    // Whether every change is told to whenChanged.
    static bool announcesEveryChange();
    // Replaces the backend chosen for this desktop (none: chosen again on next use). Takes
    // ownership.
    static void setBackend(ClipboardBackend* backend);
    // Calls changed, in context, whenever the clipboard changes as this program sees it.
    static void whenChanged(QObject* context, std::function<void()> changed);

private:
    static ClipboardBackend& backend();
};
