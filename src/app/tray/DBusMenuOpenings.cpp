#include "app/tray/DBusMenuOpenings.h"

#include "app/tray/DBusMenuEntryIds.h"
#include "app/tray/DBusMenuItemProperties.h"
#include "app/tray/DBusMenuWatcher.h"

#include <QAction>
#include <QMenu>

DBusMenuOpenings::DBusMenuOpenings(const DBusMenuEntryIds& ids, QObject* parent)
    : QObject(parent)
    , m_ids(ids) {
    m_silence.setSingleShot(true);
    m_silence.setInterval(silentPanelTimeout);
    connect(&m_silence, &QTimer::timeout, this, [this] { closing(0); });
}

QMenu* DBusMenuOpenings::menuToShow(int id) {
    if (QAction* action = id == 0 ? nullptr : m_ids.actionOf(id);
        action && DBusMenuItemProperties::opensSubmenuOnDemand(action))
        action->hover();
    return m_ids.menuOf(id);
}

void DBusMenuOpenings::opened(int id) {
    if (!menuToShow(id))
        return;
    m_open.insert(id);
    heardFromPanel();
    opening(id, Opening::ByEvent);
}

void DBusMenuOpenings::opening(int id, Opening by) {
    QMenu* menu = m_ids.menuOf(id);
    const Opening unpaired = m_unpaired.value(id, Opening::None);
    // One opening, two messages: GNOME's extension sends "opened" and then AboutToShow,
    // Qt-based panels AboutToShow and then "opened".
    if (unpaired != Opening::None && unpaired != by) {
        m_unpaired.remove(id);
        return;
    }
    m_unpaired.insert(id, by);
    // A menu being filled is not asked again: the fill under way brings its entries.
    if (!DBusMenuWatcher::isLoading(menu))
        Q_EMIT menu->aboutToShow();
}

void DBusMenuOpenings::fillSubmenusAhead(int id) {
    // libdbusmenu-gtk (xfce4-panel, waybar) shows a submenu the moment it is hovered or clicked,
    // with what it holds then, and asks for it only afterwards; GTK on Wayland never grows a
    // popup it already shows. So the submenus of a menu such a panel opened are asked to fill
    // now, before the pointer can reach them: each fills once, as when opened. Only those of the
    // item's own menu, a handful: the lists of collections and tags hold hundreds, and filling
    // them all whenever a list opens would send as many requests at once.
    if (id != 0)
        return;
    const QMenu* menu = m_ids.menuOf(id);
    if (!menu)
        return;
    const QList<QAction*> actions = menu->actions();
    for (QAction* action : actions) {
        QMenu* submenu = action->menu();
        if (submenu && action->isVisible() && !DBusMenuWatcher::isLoading(submenu))
            Q_EMIT submenu->aboutToShow();
    }
}

void DBusMenuOpenings::closing(int id) {
    m_unpaired.remove(id);
    const bool wasOpen = m_open.remove(id);
    if (QMenu* menu = m_ids.menuOf(id))
        Q_EMIT menu->aboutToHide();
    if (id != 0 || !wasOpen)
        return;
    // Whatever was open in the menu closed with it.
    m_open.clear();
    m_unpaired.clear();
    m_silence.stop();
    Q_EMIT menuClosed();
}

void DBusMenuOpenings::heardFromPanel() {
    if (m_open.contains(0))
        m_silence.start();
}

void DBusMenuOpenings::forget(int id) {
    m_open.remove(id);
    m_unpaired.remove(id);
}
