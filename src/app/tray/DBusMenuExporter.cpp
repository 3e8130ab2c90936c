#include "app/tray/DBusMenuExporter.h"

#include <QAction>
#include <QActionEvent>
#include <QDBusMetaType>
#include <QDynamicPropertyChangeEvent>
#include <QEvent>
#include <QGuiApplication>
#include <QKeySequence>
#include <QMenu>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

// Set on a menu while it is being filled.
const QByteArray loadingProperty = QByteArrayLiteral("loading");
const QString childrenDisplay = u"children-display"_s;

// A shortcut in the protocol's form: one list of key names per key press.
QList<QStringList> protocolShortcut(const QKeySequence& sequence) {
    QList<QStringList> presses;
    for (int i = 0; i < sequence.count(); ++i) {
        QStringList keys =
            QKeySequence(sequence[i]).toString(QKeySequence::PortableText).split(u'+');
        // "Ctrl++" splits into an empty last part.
        if (keys.size() > 1 && keys.constLast().isEmpty()) {
            keys.removeLast();
            keys.last() = u"plus"_s;
        }
        for (QString& key : keys) {
            if (key == u"Ctrl"_s)
                key = u"Control"_s;
            else if (key == u"Meta"_s)
                key = u"Super"_s;
        }
        presses.append(keys);
    }
    return presses;
}

// Whether action is an entry of a menu with the property "submenusOnDemand" that has not got its
// submenu yet: the menu makes it when the entry is highlighted.
bool opensSubmenuOnDemand(const QAction* action) {
    if (action->menu() || action->isSeparator())
        return false;
    const QList<QObject*> holders = action->associatedObjects();
    return std::any_of(holders.cbegin(), holders.cend(), [](const QObject* holder) {
        return qobject_cast<const QMenu*>(holder) && holder->property("submenusOnDemand").toBool();
    });
}

bool opensSubmenu(const QAction* action) {
    return action->menu() || opensSubmenuOnDemand(action);
}

QVariantMap chosen(const QVariantMap& properties, const QStringList& names) {
    if (names.isEmpty())
        return properties;
    QVariantMap chosen;
    for (const QString& name : names)
        if (properties.contains(name))
            chosen.insert(name, properties.value(name));
    return chosen;
}

// What stands for each entry of a menu when another menu replaces it: its kind, its label and
// how many entries before it in the same menu have both.
QStringList entryKeys(const QMenu* menu) {
    QStringList keys;
    QHash<QString, int> seen;
    const QList<QAction*> actions = menu->actions();
    for (const QAction* action : actions) {
        const QString kind = action->isSeparator()  ? u"-"_s
                             : opensSubmenu(action) ? u">"_s
                                                    : u"."_s;
        const QString key = kind + (action->isSeparator() ? QString() : action->text());
        keys.append(key + u'\n' + QString::number(seen[key]++));
    }
    return keys;
}

} // namespace

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

    m_readerWatcher.setWatchMode(QDBusServiceWatcher::WatchForUnregistration);
    connect(&m_readerWatcher, &QDBusServiceWatcher::serviceUnregistered, this,
            &DBusMenuExporter::forgetReader);
    m_silence.setSingleShot(true);
    m_silence.setInterval(silentPanelTimeout);
    connect(&m_silence, &QTimer::timeout, this, [this] { closing(0); });
}

DBusMenuExporter::~DBusMenuExporter() = default;

bool DBusMenuExporter::registerOn(QDBusConnection connection, const QString& path) {
    m_connection = connection;
    m_readerWatcher.setConnection(connection);
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

QString DBusMenuExporter::protocolLabel(const QString& text) {
    QString label;
    label.reserve(text.size());
    for (qsizetype i = 0; i < text.size(); ++i) {
        QChar c = text[i];
        if (c == u'&' && i + 1 < text.size()) {
            c = text[++i];
            // "&&" is a plain "&"; "&x" marks x as the mnemonic.
            if (c != u'&')
                label.append(u'_');
        }
        if (c == u'_')
            label.append(u"__"_s);
        else
            label.append(c);
    }
    return label;
}

void DBusMenuExporter::setMenu(QMenu* menu) {
    if (menu == m_menu)
        return;
    QMenu* previous = m_menu;
    m_menu = menu;
    if (menu)
        watch(menu);
    adoptIds(previous, menu);
    // The menu itself is new, whatever it holds.
    changedMenu(0);
}

void DBusMenuExporter::collectEntries(const QMenu* menu, const QString& path,
                                      QHash<QString, QAction*>& entries) const {
    const QList<QAction*> actions = menu->actions();
    const QStringList keys = entryKeys(menu);
    for (qsizetype i = 0; i < actions.size(); ++i) {
        if (!m_ids.contains(actions[i]))
            continue;
        const QString entryPath = path + u'\t' + keys[i];
        entries.insert(entryPath, actions[i]);
        if (QMenu* submenu = actions[i]->menu())
            collectEntries(submenu, entryPath, entries);
    }
}

void DBusMenuExporter::adoptIds(QMenu* from, QMenu* to) {
    // The entries panels know, by where they stand.
    QHash<QString, QAction*> previous;
    if (from)
        collectEntries(from, QString(), previous);
    if (to)
        adoptInto(from, to, QString(), previous);
    // Entries of the replaced menu that the new one lacks leave the panels' view, but the menu
    // after next may bring them back: on a refresh, "Loading…" stands in between.
    QHash<QString, Retired> retired;
    for (auto it = m_retired.cbegin(); it != m_retired.cend(); ++it)
        if (it->age == 0 && !m_actions.contains(it->id))
            retired.insert(it.key(), {it->id, 1});
    for (auto it = previous.cbegin(); it != previous.cend(); ++it) {
        const auto id = m_ids.constFind(it.value());
        if (id == m_ids.cend())
            continue;
        retired.insert(it.key(), {*id, 0});
        release(it.value());
    }
    m_retired = retired;
}

void DBusMenuExporter::adoptInto(const QMenu* from, QMenu* to, const QString& path,
                                 const QHash<QString, QAction*>& previous) {
    // The entries of this menu as panels know them.
    QList<int> before;
    if (from) {
        const QList<QAction*> old = from->actions();
        for (QAction* action : old)
            if (const auto id = m_ids.constFind(action); id != m_ids.cend())
                before.append(*id);
    }
    const QList<QAction*> actions = to->actions();
    const QStringList keys = entryKeys(to);
    // The id each entry would take over from the entry it stands for in the replaced menu.
    QList<int> taken;
    for (qsizetype i = 0; i < actions.size(); ++i) {
        QAction* old = previous.value(path + u'\t' + keys[i]);
        taken.append(m_ids.value(actions[i], old ? m_ids.value(old, -1) : -1));
    }
    // Panels apply a new layout as removals and additions at their places, and some never
    // move an entry they keep (GNOME Shell's AppIndicator extension): an id is taken over only
    // where the entries before it, or those after it, are the same as before. Elsewhere the
    // entry is new to the panel, which removes the old one and adds it at its place.
    qsizetype same = 0;
    while (same < taken.size() && same < before.size() && taken[same] == before[same] &&
           taken[same] >= 0)
        ++same;
    qsizetype sameAtEnd = 0;
    while (sameAtEnd < taken.size() - same && sameAtEnd < before.size() - same &&
           taken[taken.size() - 1 - sameAtEnd] == before[before.size() - 1 - sameAtEnd] &&
           taken[taken.size() - 1 - sameAtEnd] >= 0)
        ++sameAtEnd;
    QList<int> after;
    QList<std::tuple<const QMenu*, QMenu*, QString>> submenus;
    for (qsizetype i = 0; i < actions.size(); ++i) {
        QAction* action = actions[i];
        const QString entryPath = path + u'\t' + keys[i];
        QAction* old = previous.value(entryPath);
        const auto retired = m_retired.constFind(entryPath);
        const bool inPlace = i < same || i >= actions.size() - sameAtEnd;
        if (!inPlace)
            old = nullptr;
        if (m_ids.contains(action)) {
            // Already published (a menu that shares entries).
        } else if (old && m_ids.contains(old)) {
            const int id = m_ids.take(old);
            bind(action, id);
            // Panels update what changed in place.
            if (m_told.contains(id) && !m_changedEntries.contains(id)) {
                m_changedEntries.append(id);
                scheduleAnnouncement();
            }
        } else if (retired != m_retired.cend() && !m_actions.contains(retired->id)) {
            bind(action, retired->id);
        }
        after.append(m_ids.value(action, -1));
        if (action->menu())
            submenus.append({old ? old->menu() : nullptr, action->menu(), entryPath});
    }
    if (from && after != before) {
        if (const auto id = knownIdOfMenu(to); id && *id != 0)
            changedMenu(*id);
    }
    for (const auto& [oldSubmenu, submenu, submenuPath] : submenus) {
        watch(submenu);
        adoptInto(oldSubmenu, submenu, submenuPath, previous);
    }
}

void DBusMenuExporter::bind(QAction* action, int id) {
    m_ids.insert(action, id);
    m_actions.insert(id, action);
    connect(action, &QObject::destroyed, this, [this, action] { release(action); });
}

void DBusMenuExporter::release(QAction* action) {
    const auto id = m_ids.constFind(action);
    if (id == m_ids.cend())
        return;
    const int entry = *id;
    m_ids.erase(id);
    if (m_actions.value(entry) != action)
        return;
    m_actions.remove(entry);
    m_placeholderEntries.remove(m_placeholderIds.take(entry));
    m_told.remove(entry);
    m_open.remove(entry);
    m_unpaired.remove(entry);
    // A panel forgets an entry that left the menu; if it comes back, the panel reads it anew.
    for (Reader& reader : m_readers) {
        reader.readVersions.remove(entry);
        reader.toldKinds.remove(entry);
    }
}

int DBusMenuExporter::idOf(QAction* action) {
    const auto known = m_ids.constFind(action);
    if (known != m_ids.cend())
        return *known;
    const int id = m_nextId++;
    bind(action, id);
    return id;
}

QAction* DBusMenuExporter::actionOf(int id) const {
    return m_actions.value(id);
}

QMenu* DBusMenuExporter::menuOf(int id) const {
    if (id == 0)
        return m_menu;
    QAction* action = actionOf(id);
    return action ? action->menu() : nullptr;
}

QMenu* DBusMenuExporter::menuToShow(int id) {
    if (QAction* action = id == 0 ? nullptr : actionOf(id); action && opensSubmenuOnDemand(action))
        action->hover();
    return menuOf(id);
}

QVariantMap DBusMenuExporter::placeholderProperties(int placeholderId) const {
    QString text;
    if (const QAction* entry = actionOf(m_placeholderEntries.value(placeholderId))) {
        const QList<QObject*> holders = entry->associatedObjects();
        for (const QObject* holder : holders)
            if (text.isEmpty())
                text = holder->property("submenuPlaceholder").toString();
    }
    return {{u"label"_s, protocolLabel(text)}, {u"enabled"_s, false}, {u"visible"_s, true}};
}

bool DBusMenuExporter::isPlaceholder(int id) const {
    const auto entry = m_placeholderEntries.constFind(id);
    return entry != m_placeholderEntries.cend() && actionOf(*entry);
}

std::optional<int> DBusMenuExporter::knownIdOfMenu(const QMenu* menu) const {
    if (menu == m_menu)
        return 0;
    const auto id = m_ids.constFind(menu->menuAction());
    if (id == m_ids.cend())
        return std::nullopt;
    return *id;
}

QVariantMap DBusMenuExporter::currentProperties(int id) const {
    QVariantMap properties;
    if (id == 0) {
        properties.insert(childrenDisplay, u"submenu"_s);
        return properties;
    }
    const QAction* action = actionOf(id);
    if (action->isSeparator()) {
        properties.insert(u"type"_s, u"separator"_s);
    } else {
        properties.insert(u"label"_s, protocolLabel(action->text()));
        properties.insert(u"enabled"_s, action->isEnabled());
        if (opensSubmenu(action))
            properties.insert(childrenDisplay, u"submenu"_s);
        if (!action->shortcut().isEmpty())
            properties.insert(u"shortcut"_s,
                              QVariant::fromValue(protocolShortcut(action->shortcut())));
    }
    properties.insert(u"visible"_s, action->isVisible());
    return properties;
}

QVariantMap DBusMenuExporter::propertiesOf(int id, const QStringList& names) {
    const QVariantMap properties = currentProperties(id);
    m_told.insert(id, properties);
    return chosen(properties, names);
}

DBusMenuLayoutItem DBusMenuExporter::layoutOf(int id, QMenu* menu, int depth,
                                              const QStringList& names, Reader* reader) {
    DBusMenuLayoutItem item;
    item.id = id;
    item.properties = propertiesOf(id, names);
    // GNOME's AppIndicator extension reads layouts for the kinds of entries alone (their
    // labels come with GetGroupProperties) and rebuilds an entry whenever its kind arrives, also
    // unchanged: an open submenu closes under the user, a separator vanishes. It is told the
    // kind of each entry once.
    if (reader && !names.isEmpty() && !names.contains(u"label"_s)) {
        for (const QString& kind : {u"type"_s, childrenDisplay}) {
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
        // the screen. Told now, it reads the submenu before the user gets there.
        if (menu && reader && !hasRead(*reader, id) && !m_changedMenus.contains(id)) {
            m_changedMenus.append(id);
            scheduleAnnouncement();
        }
        return item;
    }
    if (!menu) {
        // Until its submenu is made, the panel reads it as one disabled entry, the text of the
        // menu's property "submenuPlaceholder" ("Loading…"): what the submenu shows when made.
        if (QAction* entry = id == 0 ? nullptr : actionOf(id);
            entry && opensSubmenuOnDemand(entry)) {
            auto known = m_placeholderIds.constFind(id);
            if (known == m_placeholderIds.cend()) {
                known = m_placeholderIds.insert(id, m_nextId++);
                m_placeholderEntries.insert(*known, id);
            }
            item.children.append({*known, chosen(placeholderProperties(*known), names), {}});
        }
        return item;
    }
    watch(menu);
    if (reader)
        reader->readVersions.insert(id, m_versions.value(id));
    const QList<QAction*> actions = menu->actions();
    for (QAction* action : actions)
        item.children.append(layoutOf(idOf(action), action->menu(), depth - 1, names, reader));
    return item;
}

DBusMenuExporter::Reader* DBusMenuExporter::callingReader() {
    if (!calledFromDBus())
        return nullptr;
    const QString service = message().service();
    if (!m_readers.contains(service))
        m_readerWatcher.addWatchedService(service);
    return &m_readers[service];
}

QString DBusMenuExporter::callingService() const {
    return calledFromDBus() ? message().service() : QString();
}

void DBusMenuExporter::forgetReader(const QString& service) {
    m_readers.remove(service);
    m_readerWatcher.removeWatchedService(service);
}

void DBusMenuExporter::rejectUnknown(int id) {
    if (calledFromDBus())
        sendErrorReply(QDBusError::InvalidArgs, u"Unknown menu entry "_s + QString::number(id));
}

uint DBusMenuExporter::GetLayout(int parentId, int recursionDepth, const QStringList& propertyNames,
                                 DBusMenuLayoutItem& layout) {
    if (parentId != 0 && !actionOf(parentId)) {
        rejectUnknown(parentId);
        return m_revision;
    }
    heardFromPanel();
    layout = layoutOf(parentId, menuOf(parentId), recursionDepth, propertyNames, callingReader());
    return m_revision;
}

DBusMenuItemList DBusMenuExporter::GetGroupProperties(const QList<int>& ids,
                                                      const QStringList& propertyNames) {
    heardFromPanel();
    DBusMenuItemList items;
    // No ids: every entry, and the menu itself.
    QList<int> wanted = ids;
    if (wanted.isEmpty())
        wanted = QList<int>{0} + m_actions.keys();
    for (const int id : std::as_const(wanted)) {
        if (id == 0 || actionOf(id))
            items.append({id, propertiesOf(id, propertyNames)});
        else if (isPlaceholder(id))
            items.append({id, chosen(placeholderProperties(id), propertyNames)});
    }
    return items;
}

QDBusVariant DBusMenuExporter::GetProperty(int id, const QString& name) {
    if (isPlaceholder(id))
        return QDBusVariant(placeholderProperties(id).value(name));
    if (id != 0 && !actionOf(id)) {
        rejectUnknown(id);
        return {};
    }
    heardFromPanel();
    return QDBusVariant(propertiesOf(id).value(name));
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
            fillSubmenusAhead(event.id);
    }
    return idErrors;
}

bool DBusMenuExporter::handle(int id, const QString& eventId) {
    QAction* action = id == 0 ? nullptr : actionOf(id);
    // A stand-in entry is disabled: nothing happens to it.
    if (id != 0 && !action)
        return isPlaceholder(id);
    heardFromPanel();
    if (eventId == u"clicked"_s) {
        // As in a Qt-drawn menu, an entry that opens a submenu is not chosen. Queued: the
        // action may open a modal alert, and the panel waits for this call's answer. A panel
        // closes its menu when an entry is chosen, whether it says so or not.
        if (action && action->isEnabled() && !action->menu()) {
            QMetaObject::invokeMethod(action, &QAction::trigger, Qt::QueuedConnection);
            QMetaObject::invokeMethod(
                this, [this] { closing(0); }, Qt::QueuedConnection);
        }
    } else if (eventId == u"hovered"_s) {
        if (action)
            action->hover();
    } else if (eventId == u"opened"_s) {
        if (menuToShow(id)) {
            m_open.insert(id);
            heardFromPanel();
            opening(id, Opening::ByEvent);
        }
    } else if (eventId == u"closed"_s) {
        closing(id);
    }
    return true;
}

void DBusMenuExporter::opening(int id, Opening by) {
    QMenu* menu = menuOf(id);
    const Opening unpaired = m_unpaired.value(id, Opening::None);
    // One opening, two messages: GNOME's extension sends "opened" and then AboutToShow,
    // Qt-based panels AboutToShow and then "opened".
    if (unpaired != Opening::None && unpaired != by) {
        m_unpaired.remove(id);
        return;
    }
    m_unpaired.insert(id, by);
    // A menu being filled is not asked again: the fill under way brings its entries.
    if (!isLoading(id))
        Q_EMIT menu->aboutToShow();
}

void DBusMenuExporter::fillSubmenusAhead(int id) {
    // libdbusmenu-gtk (xfce4-panel, waybar) shows a submenu the moment it is hovered or clicked,
    // with what it holds then, and asks for it only afterwards; GTK on Wayland never grows a
    // popup it already shows. So the submenus of a menu such a panel opened are asked to fill
    // now, before the pointer can reach them: each fills once, as when opened. Only those of the
    // item's own menu, a handful: the lists of collections and tags hold hundreds, and filling
    // them all whenever a list opens would send as many requests at once.
    if (id != 0)
        return;
    const QMenu* menu = menuOf(id);
    if (!menu)
        return;
    const QList<QAction*> actions = menu->actions();
    for (QAction* action : actions) {
        QMenu* submenu = action->menu();
        if (submenu && action->isVisible() &&
            !submenu->property(loadingProperty.constData()).toBool())
            Q_EMIT submenu->aboutToShow();
    }
}

void DBusMenuExporter::closing(int id) {
    m_unpaired.remove(id);
    const bool wasOpen = m_open.remove(id);
    if (QMenu* menu = menuOf(id))
        Q_EMIT menu->aboutToHide();
    if (id != 0 || !wasOpen)
        return;
    // Whatever was open in the menu closed with it.
    m_open.clear();
    m_unpaired.clear();
    m_silence.stop();
    Q_EMIT menuClosed();
}

void DBusMenuExporter::heardFromPanel() {
    if (m_open.contains(0))
        m_silence.start();
}

bool DBusMenuExporter::AboutToShow(int id) {
    if (!menuToShow(id)) {
        rejectUnknown(id);
        return false;
    }
    heardFromPanel();
    opening(id, Opening::ByCall);
    PendingShow pending{{}, callingService(), {id}, {}, false, nullptr};
    if (calledFromDBus() && isLoading(id)) {
        wait(pending);
        return false;
    }
    return !updatesNeeded(pending).isEmpty();
}

QList<int> DBusMenuExporter::AboutToShowGroup(const QList<int>& ids, QList<int>& idErrors) {
    heardFromPanel();
    PendingShow pending{{}, callingService(), {}, {}, true, nullptr};
    bool loading = false;
    for (const int id : ids) {
        if (!menuToShow(id)) {
            pending.idErrors.append(id);
            continue;
        }
        opening(id, Opening::ByCall);
        fillSubmenusAhead(id);
        pending.ids.append(id);
        loading = loading || isLoading(id);
    }
    idErrors = pending.idErrors;
    if (calledFromDBus() && loading) {
        wait(pending);
        return {};
    }
    return updatesNeeded(pending);
}

bool DBusMenuExporter::isLoading(int id) const {
    const QMenu* menu = menuOf(id);
    return menu && menu->property(loadingProperty.constData()).toBool();
}

void DBusMenuExporter::wait(PendingShow pending) {
    setDelayedReply(true);
    pending.call = message();
    pending.deadline = new QTimer(this);
    pending.deadline->setSingleShot(true);
    pending.deadline->setTimerType(Qt::PreciseTimer);
    connect(pending.deadline, &QTimer::timeout, this, [this, timer = pending.deadline] {
        for (qsizetype i = 0; i < m_pending.size(); ++i) {
            if (m_pending[i].deadline == timer) {
                answer(m_pending.takeAt(i));
                return;
            }
        }
    });
    pending.deadline->start(fillWait);
    m_pending.append(pending);
}

void DBusMenuExporter::answerFilled() {
    for (qsizetype i = 0; i < m_pending.size();) {
        const auto& ids = m_pending[i].ids;
        if (std::any_of(ids.cbegin(), ids.cend(), [this](int id) { return isLoading(id); })) {
            ++i;
            continue;
        }
        answer(m_pending.takeAt(i));
    }
}

void DBusMenuExporter::answer(const PendingShow& pending) {
    pending.deadline->deleteLater();
    const QList<int> updates = updatesNeeded(pending);
    QDBusMessage reply = pending.call.createReply();
    if (pending.group)
        reply << QVariant::fromValue(updates) << QVariant::fromValue(pending.idErrors);
    else
        reply << !updates.isEmpty();
    m_connection.send(reply);
}

bool DBusMenuExporter::hasRead(const Reader& reader, int id) const {
    const auto read = reader.readVersions.constFind(id);
    return read != reader.readVersions.cend() && *read == m_versions.value(id);
}

QList<int> DBusMenuExporter::updatesNeeded(const PendingShow& pending) {
    QList<int> updates;
    const auto reader = m_readers.constFind(pending.reader);
    for (const int id : pending.ids) {
        const bool read = reader != m_readers.cend() && hasRead(*reader, id);
        if (read || !menuOf(id))
            continue;
        updates.append(id);
        // Qt-based panels (Plasma, LXQt) read the menu once more after this answer and then
        // ignore the next layout update of it: one follows the answer, so that the one after
        // that, for a real change, is not the one ignored.
        if (!m_changedMenus.contains(id))
            m_changedMenus.append(id);
        scheduleAnnouncement();
    }
    return updates;
}

void DBusMenuExporter::watch(QMenu* menu) {
    if (m_watched.contains(menu))
        return;
    m_watched.insert(menu);
    menu->installEventFilter(this);
    connect(menu, &QObject::destroyed, this, [this, menu] { m_watched.remove(menu); });
    const QList<QAction*> actions = menu->actions();
    for (QAction* action : actions)
        if (action->menu())
            watch(action->menu());
}

bool DBusMenuExporter::eventFilter(QObject* watched, QEvent* event) {
    switch (event->type()) {
    case QEvent::ActionAdded:
    case QEvent::ActionRemoved:
    case QEvent::ActionChanged: {
        auto* menu = static_cast<QMenu*>(watched);
        QAction* action = static_cast<QActionEvent*>(event)->action();
        if (event->type() == QEvent::ActionChanged)
            entryChanged(menu, action);
        else if (const auto id = knownIdOfMenu(menu))
            changedMenu(*id);
        if (event->type() != QEvent::ActionRemoved && action->menu())
            watch(action->menu());
        break;
    }
    case QEvent::DynamicPropertyChange:
        if (static_cast<QDynamicPropertyChangeEvent*>(event)->propertyName() == loadingProperty &&
            !watched->property(loadingProperty.constData()).toBool())
            answerFilled();
        break;
    default:
        break;
    }
    return QObject::eventFilter(watched, event);
}

void DBusMenuExporter::entryChanged(QMenu* menu, QAction* action) {
    const auto id = m_ids.constFind(action);
    if (id == m_ids.cend())
        return;
    const auto told = m_told.constFind(*id);
    // What no panel has read yet, it reads as it is.
    if (told == m_told.cend())
        return;
    const QVariantMap now = currentProperties(*id);
    // An entry that becomes a separator or gains a submenu is a new kind of entry to a panel.
    for (const QString& kind : {u"type"_s, childrenDisplay}) {
        if (now.value(kind) != told->value(kind)) {
            for (Reader& reader : m_readers)
                reader.toldKinds.remove(*id);
            if (const auto parent = knownIdOfMenu(menu))
                changedMenu(*parent);
            return;
        }
    }
    if (now == *told || m_changedEntries.contains(*id))
        return;
    m_changedEntries.append(*id);
    scheduleAnnouncement();
}

void DBusMenuExporter::changedMenu(int id) {
    ++m_versions[id];
    if (!m_changedMenus.contains(id))
        m_changedMenus.append(id);
    scheduleAnnouncement();
}

void DBusMenuExporter::scheduleAnnouncement() {
    if (m_announcing)
        return;
    // Changes come in bursts (a submenu emptied and filled); the panel hears of them once.
    m_announcing = true;
    QTimer::singleShot(0, this, &DBusMenuExporter::announce);
}

void DBusMenuExporter::announce() {
    m_announcing = false;
    DBusMenuItemList updated;
    DBusMenuItemKeysList removed;
    for (const int id : std::as_const(m_changedEntries)) {
        const auto told = m_told.find(id);
        if (told == m_told.end() || !actionOf(id))
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
        Q_EMIT ItemsPropertiesUpdated(updated, removed);

    const QList<int> menus = std::exchange(m_changedMenus, {});
    for (const int id : menus)
        if (menuOf(id))
            Q_EMIT LayoutUpdated(++m_revision, id);
}
