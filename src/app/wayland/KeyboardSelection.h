#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>

#include <optional>

struct wl_callback;
struct wl_data_device;
struct wl_data_device_manager;
struct wl_data_source;
struct wl_display;
struct wl_keyboard;
struct wl_registry;
struct wl_seat;
struct wl_surface;

// The clipboard as set by the program that has the keyboard, on a Wayland compositor that lets
// no other program set it (mutter), through protocol objects of this program's own on Qt's
// connection. Qt 6.4 takes the window the compositor marks active for the one with the
// keyboard, and sets the clipboard with the serial of the last pointer, button or key event it
// saw, never the keyboard's arrival: mutter marks a new window active before it hands it the
// keyboard and cancels a copy made in between, and it drops without a word a copy whose serial
// is older than that of the program that copied last. Here the keyboard's arrival is seen as
// it comes, and the text is set with its serial.
class KeyboardSelection : public QObject {
    Q_OBJECT
public:
    KeyboardSelection();
    ~KeyboardSelection() override;

    // Whether a surface of this program has the keyboard.
    bool hasKeyboard() const { return m_focus != nullptr; }
    // Offers the text as the clipboard; confirmed() or refused() follows.
    void setText(const QString& text);
    // The text this program put on the clipboard, while it is still there.
    std::optional<QString> ownText() const;

Q_SIGNALS:
    // The keyboard came to a surface of this program (told once Qt has taken the events that
    // came with it, the clipboard's offer among them).
    void keyboardEntered();
    // The compositor made the text the clipboard.
    void confirmed();
    // The compositor cancelled the text or ignored it.
    void refused();

private:
    void bindDevice();
    void keyboardCapability(bool present);
    void settle(bool accepted);
    void destroyObjects();
    // Writes the offered text to a reader, then closes fd.
    void send(int fd) const;

    // The protocol's callbacks, which change the members below.
    friend struct KeyboardSelectionListeners;

    wl_display* m_display = nullptr;
    wl_registry* m_registry = nullptr;
    wl_seat* m_seat = nullptr;
    wl_data_device_manager* m_manager = nullptr;
    wl_data_device* m_device = nullptr;
    wl_keyboard* m_keyboard = nullptr;
    wl_surface* m_focus = nullptr;
    // The newest serial the keyboard brought.
    quint32 m_serial = 0;
    wl_data_source* m_source = nullptr;
    QByteArray m_sourceText;
    // The round trip after a copy: the compositor's answer to it comes before its end.
    wl_callback* m_check = nullptr;
    bool m_selectionSeen = false;
};
