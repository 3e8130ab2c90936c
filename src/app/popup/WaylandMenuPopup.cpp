#include "app/popup/WaylandMenuPopup.h"

#include "app/wayland/XdgActivation.h"

#include <QApplication>
#include <QMenu>
#include <QWindow>

WaylandMenuPopup::WaylandMenuPopup() {
    connect(qApp, &QGuiApplication::focusWindowChanged, this, &WaylandMenuPopup::focusChanged);
}

void WaylandMenuPopup::show(QMenu* menu, QPoint at) {
    if (m_menu && m_menu->isVisible()) {
        m_menu->close();
        return;
    }
    m_menu = menu;
    // Without a frame the compositor draws no title bar or border around it.
    if (!menu->windowFlags().testFlag(Qt::FramelessWindowHint))
        menu->setWindowFlag(Qt::FramelessWindowHint);
    // A window whose smallest and largest sizes are equal is a dialog to a tiling compositor,
    // which floats it; the size is measured anew as the items may have changed.
    menu->setMinimumSize(0, 0);
    menu->setMaximumSize(QWIDGETSIZE_MAX, QWIDGETSIZE_MAX);
    menu->setFixedSize(menu->sizeHint());
    menu->popup(at);
    XdgActivation::activateWhenShown(menu->windowHandle());
}

void WaylandMenuPopup::focusChanged(QWindow* focus) {
    // The compositor tells this program nothing of a click outside its windows, only that the
    // keyboard went elsewhere; the menu's own submenus may take it.
    if (!m_menu || !m_menu->isVisible() || isMenuWindow(focus))
        return;
    // Submenus first: closing the top menu alone would leave them to Qt's next event.
    while (QWidget* popup = QApplication::activePopupWidget()) {
        if (!popup->close())
            break;
    }
}

bool WaylandMenuPopup::isMenuWindow(const QWindow* window) const {
    if (!window)
        return false;
    for (const QWidget* widget : QApplication::topLevelWidgets()) {
        if (widget->windowHandle() == window)
            return qobject_cast<const QMenu*>(widget) != nullptr;
    }
    return false;
}
