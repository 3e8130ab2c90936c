#pragma once

#include "app/clipboard/ClipboardBackend.h"

#include <QList>
#include <QPointer>
#include <QTimer>

#include <memory>

class QWidget;
class QWindow;

// The clipboard on Wayland compositors without a clipboard protocol for programs in the
// background (GNOME): only the program with the keyboard focus may read or set it. While one of
// this program's windows has the focus (its own menu), Qt's clipboard does the work; otherwise
// a window of one transparent pixel is shown for the moment it takes (a new window gets the
// focus), and the focus goes back where it was when it closes.
class FocusClipboardBackend : public ClipboardBackend {
    Q_OBJECT
public:
    FocusClipboardBackend();
    ~FocusClipboardBackend() override;

    void setText(const QString& text) override;
    // None while no window of this program has the focus.
    std::optional<QString> text() override;
    void readText(Done done) override;
    bool readableInBackground() const override { return false; }

private:
    using Work = std::function<void()>;
    // Runs work now when a window of this program has the focus, else once the helper window
    // has it; gives up (running nothing) when the compositor does not give it.
    void withFocus(Work work, Work failed);
    void focusChanged(QWindow* focus);
    void finish(bool focused);

    std::unique_ptr<QWidget> m_window;
    QList<std::pair<Work, Work>> m_pending;
    QTimer m_giveUp;
};
