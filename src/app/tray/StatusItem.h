#pragma once

#include <QElapsedTimer>
#include <QMenu>
#include <QObject>
#include <QPoint>
#include <QPointer>
#include <QSystemTrayIcon>

#include <memory>
#include <optional>

class MenuPopup;
class QDBusServiceWatcher;
class StatusNotifierItem;

// The program's one tray icon (the drop) and the menu attached to it. Where the panel takes
// StatusNotifierItems (KDE Plasma, GNOME with the AppIndicator extension, Xfce, ...) the icon
// is one, and the panel draws the menu on a right click; elsewhere it is an XEmbed icon and Qt
// draws the menu. A left click opens the Qt-drawn menu on both.
class StatusItem : public QObject {
    Q_OBJECT
public:
    explicit StatusItem(QObject* parent = nullptr);
    ~StatusItem() override;

    // Attaches a menu, taking ownership. The previous menu is released once control returns to
    // the event loop, so an action of the old menu may safely replace it. While a menu is open
    // (the program's own or the panel's), the new one waits until it closes: a menu is never
    // replaced under the user. A newer menu replaces one still waiting.
    void setMenu(QMenu* menu);
    QMenu* menu() const { return m_menu; }

    // Opens the attached menu as a click on the icon does: below (or above) the icon, or where
    // the panel last reported a click, or at the pointer when neither is known.
    void performClick();

    // Whether the menu is open now: the program's own, or the panel's by what the panel said.
    bool isMenuOpen() const;
    // Whether the panel's menu is open now, by what the panel said.
    bool isPanelMenuOpen() const;

    // Whether the icon is a StatusNotifierItem rather than an XEmbed icon.
    bool isStatusNotifierItem() const { return m_notifierItem != nullptr; }

    static QIcon dropIcon();

Q_SIGNALS:
    void menuChanged(QMenu* menu);
    // The open menu closed (after a menu waiting for that was attached).
    void menuClosed();

private Q_SLOTS:
    // Moves the icon to a panel that has started taking StatusNotifierItems.
    void panelStarted();

private:
    bool useStatusNotifierItem();
    void popupAt(QPoint at);
    void attach(QMenu* menu);
    // A menu closed: attaches the one waiting, once nothing is open any more.
    void closed();

    // The XEmbed icon; none when the icon was a StatusNotifierItem from the start, or on
    // Wayland.
    std::unique_ptr<QSystemTrayIcon> m_trayIcon;
    std::unique_ptr<StatusNotifierItem> m_notifierItem;
    // Watches for a panel while the icon is an XEmbed one.
    std::unique_ptr<QDBusServiceWatcher> m_panelWatcher;
    QPointer<QMenu> m_menu;
    // A menu waiting for the open one to close.
    QPointer<QMenu> m_waitingMenu;
    // How the menu is shown on this desktop (X11 and Wayland differ).
    std::unique_ptr<MenuPopup> m_popup;
    // Where the panel last reported a click on the StatusNotifierItem.
    std::optional<QPoint> m_lastClick;
    // When the panel last reported a click on the icon.
    QElapsedTimer m_lastActivation;
};
