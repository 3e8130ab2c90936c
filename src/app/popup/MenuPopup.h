#pragma once

#include <QObject>
#include <QPoint>

#include <memory>

class QMenu;

// Shows the program's own menu on one kind of desktop, as a click on the tray icon, the hot key,
// ShowMenu on D-Bus and a second start do.
class MenuPopup : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

    // Shows menu at `at` (global coordinates), where the desktop lets a program place a menu.
    virtual void show(QMenu* menu, QPoint at) = 0;

    // The backend for the desktop this process runs on.
    static std::unique_ptr<MenuPopup> forThisDesktop();
};
