#include "menu/SubmenuPlacement.h"

#include <QEvent>
#include <QMenu>
#include <QScreen>

QMenu* SubmenuPlacement::newSubmenu(const QString& title, QMenu* parent) {
    auto* submenu = new QMenu(title, parent);
    watch(submenu);
    return submenu;
}

void SubmenuPlacement::watch(QMenu* submenu) {
    submenu->installEventFilter(this);
}

bool SubmenuPlacement::isLeftOfParent(const QRect& geometry, const QMenu* submenu) {
    const auto* parent = qobject_cast<const QMenu*>(submenu->parentWidget());
    return parent && geometry.left() < parent->geometry().left();
}

QRect SubmenuPlacement::keptOnScreen(QRect geometry, const QScreen* screen) {
    if (!screen)
        return geometry;
    const QRect available = screen->availableGeometry();
    if (geometry.bottom() > available.bottom())
        geometry.moveBottom(available.bottom());
    if (geometry.top() < available.top())
        geometry.moveTop(available.top());
    if (geometry.left() < available.left())
        geometry.moveLeft(available.left());
    return geometry;
}

bool SubmenuPlacement::eventFilter(QObject* watched, QEvent* event) {
    // Qt has placed the menu by the time it shows it.
    if (event->type() == QEvent::Show) {
        if (auto* submenu = qobject_cast<QMenu*>(watched))
            placeBesideParent(submenu);
    }
    return QObject::eventFilter(watched, event);
}

void SubmenuPlacement::placeBesideParent(QMenu* submenu) {
    const auto* parent = qobject_cast<QMenu*>(submenu->parentWidget());
    if (!parent || !parent->isVisible() || !isLeftOfParent(parent->geometry(), parent))
        return;
    QRect geometry = submenu->geometry();
    geometry.moveRight(parent->geometry().left() - 1);
    submenu->setGeometry(keptOnScreen(geometry, parent->screen()));
}
