#pragma once

#include "app/clipboard/ClipboardBackend.h"

// Qt's clipboard: macOS, Windows, and Wayland while one of this program's windows has the
// keyboard focus. On X11 it is set through Qt and read another way (X11ClipboardBackend).
class QtClipboardBackend : public ClipboardBackend {
    Q_OBJECT
public:
    QtClipboardBackend();

    void setText(const QString& text) override;
    std::optional<QString> text() override;
};
