#pragma once

#include <QObject>
#include <QRect>
#include <QString>

class QMenu;
class QScreen;

// Keeps the submenus of the tray menu beside the menus they came from. The tray menu sits at the
// right screen edge, so Qt opens its submenus to the left; a submenu of one of those Qt opens to
// the right wherever there is room, which is over the menu one level up.
class SubmenuPlacement : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

    // Places submenu each time it shows: to the left of its parent menu when that parent
    // opened to the left of its own parent, where Qt put it otherwise.
    void watch(QMenu* submenu);
    // A new submenu of parent, watched.
    QMenu* newSubmenu(const QString& title, QMenu* parent);

    // Whether a submenu at geometry lies to the left of its parent menu.
    static bool isLeftOfParent(const QRect& geometry, const QMenu* submenu);
    // geometry moved up, down or right as far as needed to start inside the screen's free area.
    static QRect keptOnScreen(QRect geometry, const QScreen* screen);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    static void placeBesideParent(QMenu* submenu);
};
