#include "app/popup/WaylandMenuPopup.h"

#include "app/popup/ScrollingMenuStyle.h"
#include "app/wayland/XdgActivation.h"

#include <QApplication>
#include <QEvent>
#include <QMenu>
#include <QScreen>
#include <QWindow>

#include <algorithm>

namespace {

// Qt on Wayland reports the whole screen as available: compositors tell a program nothing of
// their panels. A menu as tall as the screen is then placed below a top bar (GNOME) with its
// last entries under the screen's edge; this share of the screen is left for panels.
constexpr int panelShare = 8;

int heightFor(const QScreen& screen) {
    const QRect available = screen.availableGeometry();
    if (available != screen.geometry())
        return available.height();
    return available.height() - available.height() / panelShare;
}

} // namespace

WaylandMenuPopup::WaylandMenuPopup()
    : m_menuStyle(new ScrollingMenuStyle) {
    m_menuStyle->setParent(this);
    connect(qApp, &QGuiApplication::focusWindowChanged, this, &WaylandMenuPopup::focusChanged);
    // Every submenu, also those added to the menu later, is seen as it is about to show.
    qApp->installEventFilter(this);
}

bool WaylandMenuPopup::eventFilter(QObject* watched, QEvent* event) {
    // Qt sends a widget its show event before its window goes on screen.
    if (event->type() == QEvent::Show && m_menu && m_menu->isVisible() && watched != m_menu) {
        if (auto* submenu = qobject_cast<QMenu*>(watched); submenu && submenu->isWindow())
            showingSubmenu(submenu);
    }
    return false;
}

void WaylandMenuPopup::showingSubmenu(QMenu* submenu) {
    // Qt 6.4 makes a Qt::Popup window a grabbing popup only with the serial of an input event
    // of this program, and a plain window without one: a submenu opened by hovering alone,
    // before any key or button was pressed in the menu, would open as a window of its own
    // (placed by the compositor) or, with a stale serial, be refused and closed at once
    // (mutter). Its window is made a popup that grabs nothing instead: placed beside its
    // parent as asked, with the keyboard staying with the menu, which hands the keys on to
    // the open submenu. Only the window's type changes; the widget stays Qt's popup menu.
    QWindow* window = submenu->windowHandle();
    if (!window || window->type() == Qt::ToolTip)
        return;
    window->setFlags((window->flags() & ~Qt::WindowType_Mask) | Qt::ToolTip);
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
    // which floats it; the size is measured anew as the items may have changed. A menu taller
    // than the screen is given the screen's height less its panels, and it scrolls.
    if (menu->style() != m_menuStyle)
        menu->setStyle(m_menuStyle);
    menu->setMinimumSize(0, 0);
    menu->setMaximumSize(QWIDGETSIZE_MAX, QWIDGETSIZE_MAX);
    QSize size = menu->sizeHint();
    if (const QScreen* screen = menu->screen())
        size.setHeight(std::min(size.height(), heightFor(*screen)));
    menu->setFixedSize(size);
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
