#pragma once

#include "app/popup/MenuPopup.h"

#include <QPointer>

class QWindow;
class ScrollingMenuStyle;

// The menu on Wayland. Qt 6.4 makes a menu with no parent window an ordinary top-level window:
// a compositor tiles it (sway) or centres it and leaves it open when the user clicks elsewhere
// (GNOME), because a real popup needs a parent surface and an input event of this program,
// which a click on the panel's icon, the hot key or a D-Bus call never gives. So the menu stays
// a top-level window, made to behave as a menu: of a fixed size (which a tiling compositor
// floats), with the keyboard (a new window gets the focus; a token from the panel asks for
// it), and closed when the focus goes to another program or window, on Escape and on a choice
// as any menu. A second request while it is open closes it, as a second click on an icon does.
// Its submenus are popups beside it that do not ask for the input (see showingSubmenu).
class WaylandMenuPopup : public MenuPopup {
    Q_OBJECT
public:
    WaylandMenuPopup();

    void show(QMenu* menu, QPoint at) override;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void showingSubmenu(QMenu* submenu);
    void focusChanged(QWindow* focus);
    bool isMenuWindow(const QWindow* window) const;

    QPointer<QMenu> m_menu;
    ScrollingMenuStyle* m_menuStyle;
};
