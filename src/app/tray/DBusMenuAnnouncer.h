#pragma once

#include "app/tray/DBusMenuItem.h"
#include "app/tray/DBusMenuItemKeys.h"

#include <QHash>
#include <QList>
#include <QObject>
#include <QStringList>
#include <QVariantMap>

class DBusMenuEntryIds;
class DBusMenuReaders;
class QAction;
class QMenu;

// Keeps what panels were told of the published menu and tells them what changed. Entries added
// or removed, or of another kind, go out as a layout update of their menu; a changed label,
// enabled or visible flag of an entry a panel knows as a property update, which panels apply in
// place. Changes come in bursts (a submenu emptied and filled); the panels hear of each once.
class DBusMenuAnnouncer : public QObject {
    Q_OBJECT
public:
    DBusMenuAnnouncer(const DBusMenuEntryIds& ids, DBusMenuReaders& readers,
                      QObject* parent = nullptr);

    // Raised with every layout update.
    uint revision() const { return m_revision; }

    // The entry's properties (id 0: the menu itself), all or those named; remembered as told.
    QVariantMap tell(int id, const QStringList& names = {});
    // The entries of the menu of id changed (added, removed, of another kind).
    void menuChanged(int id);
    // The same for a menu, if panels know it.
    void entriesChanged(const QMenu* menu);
    // An entry of menu changed: its properties go out as an update, a change of kind as a new
    // layout of menu.
    void entryChanged(const QMenu* menu, QAction* action);
    // An entry took over the id of another: what differs goes out as an update.
    void takenOver(int id);
    // A layout update of the menu of id goes out with the next announcement, changed or not.
    void announceLayout(int id);
    // The menus among ids whose entries the panel of service has yet to read as they are now.
    QList<int> unreadMenus(const QString& service, const QList<int>& ids);
    // The entry left the menu: it is new to panels if it comes back.
    void forget(int id) { m_told.remove(id); }

Q_SIGNALS:
    void layoutUpdated(uint revision, int parent);
    void itemsPropertiesUpdated(const DBusMenuItemList& updatedProperties,
                                const DBusMenuItemKeysList& removedProperties);

private:
    QVariantMap currentProperties(int id) const;
    void scheduleAnnouncement();
    void announce();

    const DBusMenuEntryIds& m_ids;
    DBusMenuReaders& m_readers;
    uint m_revision = 1;
    // The properties of each entry as panels were last told them.
    QHash<int, QVariantMap> m_told;
    // Menus changed since the last announcement (by id), and entries whose properties changed.
    QList<int> m_changedMenus;
    QList<int> m_changedEntries;
    bool m_announcing = false;
};
