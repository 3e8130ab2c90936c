#pragma once

#include "app/clipboard/ClipboardBackend.h"
#include "app/wayland/KeyboardSelection.h"

#include <QList>
#include <QTimer>

#include <memory>

class QWidget;

// The clipboard on Wayland compositors without a clipboard protocol for programs in the
// background (GNOME): only the program with the keyboard may read or set it. While one of this
// program's windows has the keyboard (its own menu), the work is done at once; otherwise a
// window of one transparent pixel is shown until the keyboard has come to it and the work is
// done, and the keyboard goes back where it was when it closes. A new window is marked active
// before the keyboard comes: the work waits for the keyboard itself, and a copy is done once
// the compositor has made it the clipboard.
class FocusClipboardBackend : public ClipboardBackend {
    Q_OBJECT
public:
    FocusClipboardBackend();
    ~FocusClipboardBackend() override;

    void setText(const QString& text) override;
    // None while no window of this program has the keyboard.
    std::optional<QString> text() override;
    void readText(Done done) override;
    bool readableInBackground() const override { return false; }

private:
    // Does what waits when the keyboard is here, asks for it otherwise.
    void serve();
    void copyConfirmed();
    void copyRefused();
    void showWindow();
    // Gives up what still waits (a copy is dropped, reads get none) and closes the window.
    void finish();
    void closeWindow();

    KeyboardSelection m_selection;
    std::unique_ptr<QWidget> m_window;
    // The text to put on the clipboard, until the compositor took it.
    std::optional<QString> m_copy;
    // The text offered, while the compositor's answer is awaited.
    std::optional<QString> m_offered;
    QList<Done> m_reads;
    QTimer m_giveUp;
};
