#pragma once

#include <QHash>
#include <QObject>
#include <QSet>
#include <QTimer>

#include <chrono>

class DBusMenuEntryIds;
class QMenu;

// Which menus a panel shows now, by what it says. Its openings and closings reach the menus as
// a Qt-drawn menu's do (QMenu::aboutToShow, QMenu::aboutToHide).
class DBusMenuOpenings : public QObject {
    Q_OBJECT
public:
    // How a panel says that it opens a menu.
    enum class Opening { None, ByEvent, ByCall };

    // A panel that announced its menu open and has not been heard of for this long is taken to
    // have closed it without saying so.
    static constexpr std::chrono::milliseconds silentPanelTimeout = std::chrono::minutes(2);

    explicit DBusMenuOpenings(const DBusMenuEntryIds& ids, QObject* parent = nullptr);

    bool isOpen(int id) const { return m_open.contains(id); }

    // The menu of id, which the panel opens: an entry of a menu whose property
    // "submenusOnDemand" is true gets its submenu first, made by highlighting it as a Qt-drawn
    // menu does. None for an id that opens no menu.
    QMenu* menuToShow(int id);
    // The panel says that it shows the menu of id (its "opened" event).
    void opened(int id);
    // The panel opens the menu of id, by an event or an about-to-show call.
    void opening(int id, Opening by);
    // The panel opened the menu of id with a grouped call (libdbusmenu-glib): if it is the
    // item's own menu, its submenus are asked to fill now.
    void fillSubmenusAhead(int id);
    void closing(int id);
    // Any call of the panel: a menu it shows is still open.
    void heardFromPanel();
    // The entry left the menu.
    void forget(int id);

Q_SIGNALS:
    // The panel closed the menu it had open.
    void menuClosed();

private:
    const DBusMenuEntryIds& m_ids;
    // Menus the panel shows now, and how the last unmatched opening of each came.
    QSet<int> m_open;
    QHash<int, Opening> m_unpaired;
    QTimer m_silence;
};
