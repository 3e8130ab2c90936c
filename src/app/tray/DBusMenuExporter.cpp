#include "app/tray/DBusMenuExporter.h"

#include <QAction>
#include <QDBusMetaType>
#include <QGuiApplication>

using namespace Qt::StringLiterals;

DBusMenuExporter::DBusMenuExporter(QObject* parent)
    : QObject(parent) {
    qDBusRegisterMetaType<DBusMenuItem>();
    qDBusRegisterMetaType<DBusMenuItemList>();
    qDBusRegisterMetaType<DBusMenuEvent>();
    qDBusRegisterMetaType<DBusMenuEventList>();
    qDBusRegisterMetaType<DBusMenuItemKeys>();
    qDBusRegisterMetaType<DBusMenuItemKeysList>();
    qDBusRegisterMetaType<DBusMenuLayoutItem>();
    qDBusRegisterMetaType<QList<QStringList>>();
    // Qt finds the types of exported methods and signals by the names written in their
    // signatures; a list known only as QList<...> would leave its method unexported.
    qRegisterMetaType<DBusMenuItemList>("DBusMenuItemList");
    qRegisterMetaType<DBusMenuEventList>("DBusMenuEventList");
    qRegisterMetaType<DBusMenuItemKeysList>("DBusMenuItemKeysList");

    connect(&m_ids, &DBusMenuEntryIds::released, &m_announcer, &DBusMenuAnnouncer::forget);
    connect(&m_ids, &DBusMenuEntryIds::released, &m_openings, &DBusMenuOpenings::forget);
    connect(&m_ids, &DBusMenuEntryIds::released, &m_readers, &DBusMenuReaders::forgetEntry);
    connect(&m_ids, &DBusMenuEntryIds::takenOver, &m_announcer, &DBusMenuAnnouncer::takenOver);
    connect(&m_ids, &DBusMenuEntryIds::entriesChanged, &m_announcer,
            &DBusMenuAnnouncer::menuChanged);
    connect(&m_watcher, &DBusMenuWatcher::entriesChanged, &m_announcer,
            &DBusMenuAnnouncer::entriesChanged);
    connect(&m_watcher, &DBusMenuWatcher::entryChanged, &m_announcer,
            &DBusMenuAnnouncer::entryChanged);
    connect(&m_watcher, &DBusMenuWatcher::filled, &m_pendingShows,
            &DBusMenuPendingShows::answerFilled);
    connect(&m_announcer, &DBusMenuAnnouncer::layoutUpdated, this,
            &DBusMenuExporter::LayoutUpdated);
    connect(&m_announcer, &DBusMenuAnnouncer::itemsPropertiesUpdated, this,
            &DBusMenuExporter::ItemsPropertiesUpdated);
    connect(&m_openings, &DBusMenuOpenings::menuClosed, this, &DBusMenuExporter::menuClosed);
}

DBusMenuExporter::~DBusMenuExporter() = default;

bool DBusMenuExporter::registerOn(QDBusConnection connection, const QString& path) {
    m_pendingShows.setConnection(connection);
    m_readers.setConnection(connection);
    return connection.registerObject(path, this,
                                     QDBusConnection::ExportScriptableContents |
                                         QDBusConnection::ExportAllProperties);
}

QString DBusMenuExporter::textDirection() const {
    return QGuiApplication::layoutDirection() == Qt::RightToLeft ? u"rtl"_s : u"ltr"_s;
}

QString DBusMenuExporter::status() const {
    return u"normal"_s;
}

void DBusMenuExporter::setMenu(QMenu* menu) {
    if (menu == m_ids.menu())
        return;
    if (menu)
        m_watcher.watch(menu);
    m_ids.setMenu(menu);
    // The menu itself is new, whatever it holds.
    m_announcer.menuChanged(0);
}

DBusMenuLayoutItem DBusMenuExporter::layoutOf(int id, QMenu* menu, int depth,
                                              const QStringList& names,
                                              DBusMenuReaders::Reader* reader) {
    DBusMenuLayoutItem item;
    item.id = id;
    item.properties = m_announcer.tell(id, names);
    // GNOME's AppIndicator extension reads layouts for the kinds of entries alone (their
    // labels come with GetGroupProperties) and rebuilds an entry whenever its kind arrives, also
    // unchanged: an open submenu closes under the user, a separator vanishes. It is told the
    // kind of each entry once.
    if (reader && !names.isEmpty() && !names.contains(u"label"_s)) {
        const QStringList kinds = DBusMenuItemProperties::kinds();
        for (const QString& kind : kinds) {
            if (!item.properties.contains(kind))
                continue;
            if (reader->toldKinds.contains(id))
                item.properties.remove(kind);
        }
        reader->toldKinds.insert(id);
    }
    if (depth == 0) {
        // Plasma reads a submenu only when told or when it opens, and shows it at once, empty
        // the first time: Qt places it by that size, beside the screen's edge, and it grows off
        // the screen. Told now, it reads the submenu before the user gets there: its entries,
        // or the stand-in of one made on demand.
        if (reader && menu && !m_readers.hasRead(*reader, id)) {
            m_announcer.announceLayout(id);
        } else if (reader && !menu && id != 0 && !reader->toldStandIns.contains(id)) {
            QAction* entry = m_ids.actionOf(id);
            if (entry && DBusMenuItemProperties::opensSubmenuOnDemand(entry)) {
                reader->toldStandIns.insert(id);
                m_announcer.announceLayout(id);
            }
        }
        return item;
    }
    if (!menu) {
        // Until its submenu is made, the panel reads it as one stand-in entry.
        if (QAction* entry = id == 0 ? nullptr : m_ids.actionOf(id);
            entry && DBusMenuItemProperties::opensSubmenuOnDemand(entry)) {
            const int placeholderId = m_ids.placeholderIdOf(id);
            item.children.append({placeholderId,
                                  DBusMenuItemProperties::chosen(
                                      DBusMenuItemProperties::ofPlaceholder(entry), names),
                                  {}});
        }
        return item;
    }
    m_watcher.watch(menu);
    if (reader)
        m_readers.markRead(*reader, id);
    const QList<QAction*> actions = menu->actions();
    for (QAction* action : actions)
        item.children.append(
            layoutOf(m_ids.idOf(action), action->menu(), depth - 1, names, reader));
    return item;
}

DBusMenuReaders::Reader* DBusMenuExporter::callingReader() {
    return calledFromDBus() ? &m_readers.reader(message().service()) : nullptr;
}

QString DBusMenuExporter::callingService() const {
    return calledFromDBus() ? message().service() : QString();
}

void DBusMenuExporter::rejectUnknown(int id) {
    if (calledFromDBus())
        sendErrorReply(QDBusError::InvalidArgs, u"Unknown menu entry "_s + QString::number(id));
}

uint DBusMenuExporter::GetLayout(int parentId, int recursionDepth, const QStringList& propertyNames,
                                 DBusMenuLayoutItem& layout) {
    if (parentId != 0 && !m_ids.actionOf(parentId)) {
        rejectUnknown(parentId);
        return m_announcer.revision();
    }
    m_openings.heardFromPanel();
    layout =
        layoutOf(parentId, m_ids.menuOf(parentId), recursionDepth, propertyNames, callingReader());
    return m_announcer.revision();
}

DBusMenuItemList DBusMenuExporter::GetGroupProperties(const QList<int>& ids,
                                                      const QStringList& propertyNames) {
    m_openings.heardFromPanel();
    DBusMenuItemList items;
    // No ids: every entry, and the menu itself.
    QList<int> wanted = ids;
    if (wanted.isEmpty())
        wanted = QList<int>{0} + m_ids.entryIds();
    for (const int id : std::as_const(wanted)) {
        if (id == 0 || m_ids.actionOf(id))
            items.append({id, m_announcer.tell(id, propertyNames)});
        else if (m_ids.isPlaceholder(id))
            items.append({id, DBusMenuItemProperties::chosen(DBusMenuItemProperties::ofPlaceholder(
                                                                 m_ids.entryOfPlaceholder(id)),
                                                             propertyNames)});
    }
    return items;
}

QDBusVariant DBusMenuExporter::GetProperty(int id, const QString& name) {
    if (m_ids.isPlaceholder(id))
        return QDBusVariant(
            DBusMenuItemProperties::ofPlaceholder(m_ids.entryOfPlaceholder(id)).value(name));
    if (id != 0 && !m_ids.actionOf(id)) {
        rejectUnknown(id);
        return {};
    }
    m_openings.heardFromPanel();
    return QDBusVariant(m_announcer.tell(id).value(name));
}

void DBusMenuExporter::Event(int id, const QString& eventId, const QDBusVariant&, uint) {
    if (!handle(id, eventId))
        rejectUnknown(id);
}

QList<int> DBusMenuExporter::EventGroup(const DBusMenuEventList& events) {
    QList<int> idErrors;
    for (const DBusMenuEvent& event : events) {
        if (!handle(event.id, event.eventId))
            idErrors.append(event.id);
        else if (event.eventId == u"opened"_s)
            m_openings.fillSubmenusAhead(event.id);
    }
    return idErrors;
}

bool DBusMenuExporter::handle(int id, const QString& eventId) {
    QAction* action = id == 0 ? nullptr : m_ids.actionOf(id);
    // A stand-in entry is disabled: nothing happens to it.
    if (id != 0 && !action)
        return m_ids.isPlaceholder(id);
    m_openings.heardFromPanel();
    if (eventId == u"clicked"_s) {
        // As in a Qt-drawn menu, an entry that opens a submenu is not chosen. Queued: the
        // action may open a modal alert, and the panel waits for this call's answer. A panel
        // closes its menu when an entry is chosen, whether it says so or not.
        if (action && action->isEnabled() && !action->menu()) {
            QMetaObject::invokeMethod(action, &QAction::trigger, Qt::QueuedConnection);
            QMetaObject::invokeMethod(
                &m_openings, [this] { m_openings.closing(0); }, Qt::QueuedConnection);
        }
    } else if (eventId == u"hovered"_s) {
        if (action)
            action->hover();
    } else if (eventId == u"opened"_s) {
        m_openings.opened(id);
    } else if (eventId == u"closed"_s) {
        m_openings.closing(id);
    }
    return true;
}

bool DBusMenuExporter::AboutToShow(int id) {
    if (!m_openings.menuToShow(id)) {
        rejectUnknown(id);
        return false;
    }
    m_openings.heardFromPanel();
    m_openings.opening(id, DBusMenuOpenings::Opening::ByCall);
    const DBusMenuPendingShows::Show show{callingService(), {id}, {}, false};
    if (calledFromDBus() && isLoading(id)) {
        wait(show);
        return false;
    }
    return !m_announcer.unreadMenus(show.reader, show.ids).isEmpty();
}

QList<int> DBusMenuExporter::AboutToShowGroup(const QList<int>& ids, QList<int>& idErrors) {
    m_openings.heardFromPanel();
    DBusMenuPendingShows::Show show{callingService(), {}, {}, true};
    bool loading = false;
    for (const int id : ids) {
        if (!m_openings.menuToShow(id)) {
            show.idErrors.append(id);
            continue;
        }
        m_openings.opening(id, DBusMenuOpenings::Opening::ByCall);
        m_openings.fillSubmenusAhead(id);
        show.ids.append(id);
        loading = loading || isLoading(id);
    }
    idErrors = show.idErrors;
    if (calledFromDBus() && loading) {
        wait(show);
        return {};
    }
    return m_announcer.unreadMenus(show.reader, show.ids);
}

bool DBusMenuExporter::isLoading(int id) const {
    return DBusMenuWatcher::isLoading(m_ids.menuOf(id));
}

void DBusMenuExporter::wait(const DBusMenuPendingShows::Show& show) {
    setDelayedReply(true);
    m_pendingShows.wait(message(), show);
}
