#pragma once

#include <QMenu>
#include <QObject>
#include <QPointer>
#include <QSystemTrayIcon>

// The program's one tray icon (the drop) and the menu attached to it.
class StatusItem : public QObject {
    Q_OBJECT
public:
    explicit StatusItem(QObject* parent = nullptr);
    ~StatusItem() override;

    // Attaches a menu, taking ownership. The previous menu is released once control returns to
    // the event loop, so an action of the old menu may safely replace it.
    void setMenu(QMenu* menu);
    QMenu* menu() const { return m_menu; }

    // Opens the attached menu as a click on the icon does: below (or above) the icon, or at the
    // pointer where the panel does not say where the icon is.
    void performClick();

    QSystemTrayIcon& trayIcon() { return m_trayIcon; }

    static QIcon dropIcon();

Q_SIGNALS:
    void menuChanged(QMenu* menu);

private:
    QSystemTrayIcon m_trayIcon;
    QPointer<QMenu> m_menu;
};
