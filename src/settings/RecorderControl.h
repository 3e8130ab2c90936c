#pragma once

#include "config/ShortcutConfig.h"

#include <QColor>
#include <QWidget>

#include <cstdint>
#include <optional>

class QLabel;
class QKeyEvent;

// The field that records a key combination. A click (or Space while it has the focus) starts
// recording; the next key press with at least one of Shift, Ctrl, Alt or Meta becomes the
// shortcut, Backspace or Delete clears it, Escape, a second click or leaving the field cancels.
// The key recorded is the physical key, whatever the keyboard layout. While it records, every key
// press of the application comes here first, so that no shortcut of the application fires
// instead.
class RecorderControl : public QWidget {
    Q_OBJECT
public:
    // Key codes of the configuration's numbering with a fixed meaning while recording.
    static constexpr std::uint16_t escapeKeyCode = 53;
    static constexpr std::uint16_t deleteKeyCode = 51;
    static constexpr std::uint16_t forwardDeleteKeyCode = 117;

    explicit RecorderControl(QWidget* parent = nullptr);

    std::optional<ShortcutConfig> shortcut() const { return m_shortcut; }
    // Shows a new value; does not report it through changed.
    void setShortcut(const std::optional<ShortcutConfig>& shortcut);
    bool isRecording() const { return m_isRecording; }

    // The label of a key as recorded: its name upper-cased, or "?" for a key without one.
    static QString keyLabel(int qtKey);
    // The label of a pressed key: the character it types in the current layout, upper-cased,
    // where that is a visible one; otherwise its name.
    static QString keyLabel(const QKeyEvent& event);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

Q_SIGNALS:
    // A recording set or cleared the shortcut.
    void changed(const std::optional<ShortcutConfig>& shortcut);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    void changeEvent(QEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    void startRecording();
    void stopRecording();
    void handleKeyEvent(const QKeyEvent* event);
    void updateDisplay();

    std::optional<ShortcutConfig> m_shortcut;
    bool m_isRecording = false;
    QLabel* m_label;
    QColor m_borderColor;
    QColor m_backgroundColor;
};
