#include "app/tray/DBusMenuAnnouncer.h"

#include "app/tray/DBusMenuEntryIds.h"
#include "app/tray/DBusMenuItemProperties.h"
#include "app/tray/DBusMenuReaders.h"

#include <QTimer>

#include <utility>

DBusMenuAnnouncer::DBusMenuAnnouncer(const DBusMenuEntryIds& ids, DBusMenuReaders& readers,
                                     QObject* parent)
    : QObject(parent)
    , m_ids(ids)
    , m_readers(readers) {}

QVariantMap DBusMenuAnnouncer::currentProperties(int id) const {
    return id == 0 ? DBusMenuItemProperties::ofMenu()
                   : DBusMenuItemProperties::ofEntry(m_ids.actionOf(id));
}

QVariantMap DBusMenuAnnouncer::tell(int id, const QStringList& names) {
    const QVariantMap properties = currentProperties(id);
    if (names.isEmpty()) {
        m_told.insert(id, properties);
        return properties;
    }
    // A panel that asks for some properties (GNOME's extension reads layouts for the kinds
    // alone) is told those: a change of the others, made before it asked and not announced
    // yet, is still announced.
    QVariantMap& told = m_told[id];
    for (const QString& name : names) {
        if (properties.contains(name))
            told.insert(name, properties.value(name));
        else
            told.remove(name);
    }
    return DBusMenuItemProperties::chosen(properties, names);
}

void DBusMenuAnnouncer::menuChanged(int id) {
    m_readers.menuChanged(id);
    if (!m_changedMenus.contains(id))
        m_changedMenus.append(id);
    scheduleAnnouncement();
}

void DBusMenuAnnouncer::entriesChanged(const QMenu* menu) {
    if (const auto id = m_ids.knownIdOfMenu(menu))
        menuChanged(*id);
}

void DBusMenuAnnouncer::entryChanged(const QMenu* menu, QAction* action) {
    const auto id = m_ids.knownIdOf(action);
    if (!id)
        return;
    const auto told = m_told.constFind(*id);
    // What no panel has read yet, it reads as it is.
    if (told == m_told.cend())
        return;
    const QVariantMap now = currentProperties(*id);
    // An entry that becomes a separator or gains a submenu is a new kind of entry to a panel.
    const QStringList kinds = DBusMenuItemProperties::kinds();
    for (const QString& kind : kinds) {
        if (now.value(kind) != told->value(kind)) {
            m_readers.forgetKind(*id);
            entriesChanged(menu);
            return;
        }
    }
    if (now == *told || m_changedEntries.contains(*id))
        return;
    m_changedEntries.append(*id);
    scheduleAnnouncement();
}

void DBusMenuAnnouncer::takenOver(int id) {
    if (!m_told.contains(id) || m_changedEntries.contains(id))
        return;
    m_changedEntries.append(id);
    scheduleAnnouncement();
}

void DBusMenuAnnouncer::announceLayout(int id) {
    if (!m_changedMenus.contains(id))
        m_changedMenus.append(id);
    scheduleAnnouncement();
}

QList<int> DBusMenuAnnouncer::unreadMenus(const QString& service, const QList<int>& ids) {
    QList<int> unread;
    const DBusMenuReaders::Reader* reader = m_readers.find(service);
    for (const int id : ids) {
        if ((reader && m_readers.hasRead(*reader, id)) || !m_ids.menuOf(id))
            continue;
        unread.append(id);
        // Qt-based panels (Plasma, LXQt) read the menu once more after they hear of this and
        // then ignore the next layout update of it: one follows, so that the one after that,
        // for a real change, is not the one ignored.
        announceLayout(id);
    }
    return unread;
}

void DBusMenuAnnouncer::scheduleAnnouncement() {
    if (m_announcing)
        return;
    m_announcing = true;
    QTimer::singleShot(0, this, &DBusMenuAnnouncer::announce);
}

void DBusMenuAnnouncer::announce() {
    m_announcing = false;
    DBusMenuItemList updated;
    DBusMenuItemKeysList removed;
    for (const int id : std::as_const(m_changedEntries)) {
        const auto told = m_told.find(id);
        if (told == m_told.end() || !m_ids.actionOf(id))
            continue;
        const QVariantMap now = currentProperties(id);
        QVariantMap changedValues;
        for (auto it = now.cbegin(); it != now.cend(); ++it)
            if (!told->contains(it.key()) || told->value(it.key()) != it.value())
                changedValues.insert(it.key(), it.value());
        QStringList gone;
        for (auto it = told->cbegin(); it != told->cend(); ++it)
            if (!now.contains(it.key()))
                gone.append(it.key());
        *told = now;
        if (!changedValues.isEmpty())
            updated.append({id, changedValues});
        if (!gone.isEmpty())
            removed.append({id, gone});
    }
    m_changedEntries.clear();
    if (!updated.isEmpty() || !removed.isEmpty())
        Q_EMIT itemsPropertiesUpdated(updated, removed);

    const QList<int> menus = std::exchange(m_changedMenus, {});
    for (const int id : menus) {
        // A submenu made on demand is told of before it is made: its stand-in is read.
        const QAction* entry = id == 0 ? nullptr : m_ids.actionOf(id);
        if (m_ids.menuOf(id) || (entry && DBusMenuItemProperties::opensSubmenuOnDemand(entry)))
            Q_EMIT layoutUpdated(++m_revision, id);
    }
}
