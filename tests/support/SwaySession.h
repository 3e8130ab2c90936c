#pragma once

#include "ChildProcess.h"
#include "PrivateSessionBus.h"

#include <QFile>
#include <QJsonObject>
#include <QPoint>
#include <QRect>
#include <QSize>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <memory>
#include <optional>

// A sway session of a test's own: headless sway 1.7 with one output, waybar with its tray as the
// bar, a private session bus and a virtual pointer (the headless backend has no input devices).
// The test program itself is a Wayland client of it (QT_QPA_PLATFORM=wayland). sway refuses to
// run as root: call UnprivilegedUser::runTestAsUnprivilegedUser() first. Everything it starts
// stops with it. Input is real: the compositor routes it as it would a mouse's and a keyboard's
// (wtype types through the virtual-keyboard protocol).
class SwaySession {
public:
    struct Options {
        QSize screen{1366, 768};
        // Lines added to sway's configuration (key bindings, say).
        QStringList configuration;
    };

    explicit SwaySession(Options options);
    ~SwaySession();
    SwaySession(const SwaySession&) = delete;
    SwaySession& operator=(const SwaySession&) = delete;

    // Starts the bus, sway (with waybar) and the pointer, and points this process's
    // WAYLAND_DISPLAY, SWAYSOCK, DBUS_SESSION_BUS_ADDRESS and QT_QPA_PLATFORM at them.
    bool start();
    QString errorString() const { return m_error; }
    QString logDirectory() const { return m_work.path(); }
    QSize screenSize() const { return m_options.screen; }

    // Pointer and keys. Buttons are Linux codes: left 272, right 273, middle 274.
    static constexpr int leftButton = 272;
    static constexpr int rightButton = 273;
    static constexpr int middleButton = 274;
    bool movePointer(QPoint at);
    bool click(QPoint at, int button = leftButton);
    // Runs wtype with these arguments (for example {"-M", "ctrl", "-k", "Escape"}).
    static bool type(const QStringList& arguments);

    // The whole screen as PNG.
    static bool screenshot(const QString& file);
    // sway's window tree (swaymsg -t get_tree), and the windows (views) in it with an app_id.
    static QJsonObject tree();
    static QList<QJsonObject> windows(const QString& appId);
    // A view's rectangle on screen, from the tree.
    static QRect rectOf(const QJsonObject& view);
    // The middle of the tray's icons: the bar's part where pixels differ from its background.
    std::optional<QPoint> trayIcon() const;

    // The clipboard as another program sees it (wl-paste), and set by another program that stays
    // its owner (wl-copy).
    static QString clipboard();
    bool setClipboard(const QString& text);

    static void startShared(Options options);
    static SwaySession& shared();

private:
    bool fail(const QString& error);
    bool writeConfiguration();
    bool startPointer();
    bool pointerCommand(const QString& command);

    Options m_options;
    QTemporaryDir m_work;
    PrivateSessionBus m_bus;
    ChildProcess m_sway;
    ChildProcess m_pointer;
    ChildProcess m_keyboard;
    ChildProcess m_clipboardOwner;
    QFile m_pointerCommands;
    QString m_error;
};
