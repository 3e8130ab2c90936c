#include "app/tray/DBusMenuExporter.h"

#include <QAction>
#include <QActionEvent>
#include <QDBusMetaType>
#include <QEvent>
#include <QGuiApplication>
#include <QKeySequence>
#include <QMenu>
#include <QTimer>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

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

// The properties named (all of them when none are).
QVariantMap chosen(const QVariantMap& properties, const QStringList& names) {
    if (names.isEmpty())
        return properties;
    QVariantMap chosen;
    for (const QString& name : names)
        if (properties.contains(name))
            chosen.insert(name, properties.value(name));
    return chosen;
}

} // namespace

DBusMenuExporter::DBusMenuExporter(QObject* parent)
    : QObject(parent) {
    qDBusRegisterMetaType<DBusMenuItem>();
    qDBusRegisterMetaType<DBusMenuItemList>();
    qDBusRegisterMetaType<DBusMenuEvent>();
    qDBusRegisterMetaType<DBusMenuEventList>();
    qDBusRegisterMetaType<DBusMenuLayoutItem>();
    qDBusRegisterMetaType<QList<QStringList>>();
}

DBusMenuExporter::~DBusMenuExporter() = default;

bool DBusMenuExporter::registerOn(QDBusConnection connection, const QString& path) {
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
    m_menu = menu;
    m_open.clear();
    if (menu)
        watch(menu);
    // A new menu is announced as a change of everything.
    m_wholeMenuChanged = true;
    changed(nullptr);
}

int DBusMenuExporter::idOf(QAction* action) {
    const auto known = m_ids.constFind(action);
    if (known != m_ids.cend())
        return *known;
    const int id = m_nextId++;
    m_ids.insert(action, id);
    m_actions.insert(id, action);
    connect(action, &QObject::destroyed, this, [this, action, id] {
        m_ids.remove(action);
        m_actions.remove(id);
        m_placeholderEntries.remove(m_placeholderIds.take(id));
    });
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
    QAction* action = actionOf(id);
    if (id != 0 && action && opensSubmenuOnDemand(action)) {
        // The entry itself does not change for the panel: it was a submenu all along.
        m_makingSubmenu = true;
        action->hover();
        m_makingSubmenu = false;
        // The made submenu holds what its stand-in showed ("Loading…"): nothing to announce,
        // but the panel, about to show it, should read it (AboutToShow answers "update needed").
        if (QMenu* made = action->menu()) {
            watch(made);
            ++m_changes;
        }
    }
    return menuOf(id);
}

bool DBusMenuExporter::opensSubmenuOnDemand(const QAction* action) {
    if (action->menu() || action->isSeparator())
        return false;
    const QList<QObject*> holders = action->associatedObjects();
    return std::any_of(holders.cbegin(), holders.cend(), [](const QObject* holder) {
        return qobject_cast<const QMenu*>(holder) && holder->property("submenusOnDemand").toBool();
    });
}

QVariantMap DBusMenuExporter::placeholderProperties(const QAction* entry) {
    QString text;
    const QList<QObject*> holders = entry->associatedObjects();
    for (const QObject* holder : holders)
        if (text.isEmpty())
            text = holder->property("submenuPlaceholder").toString();
    return {{u"label"_s, protocolLabel(text)}, {u"enabled"_s, false}, {u"visible"_s, true}};
}

DBusMenuLayoutItem DBusMenuExporter::placeholderLayout(int entryId, QAction* entry,
                                                       const QStringList& names) {
    auto known = m_placeholderIds.constFind(entryId);
    if (known == m_placeholderIds.cend()) {
        known = m_placeholderIds.insert(entryId, m_nextId++);
        m_placeholderEntries.insert(*known, entryId);
    }
    DBusMenuLayoutItem item;
    item.id = *known;
    item.properties = chosen(placeholderProperties(entry), names);
    return item;
}

int DBusMenuExporter::idOfMenu(const QMenu* menu) {
    if (menu == m_menu)
        return 0;
    return idOf(menu->menuAction());
}

QVariantMap DBusMenuExporter::propertiesOf(QAction* action, const QStringList& names) {
    QVariantMap properties;
    if (action->isSeparator()) {
        properties.insert(u"type"_s, u"separator"_s);
    } else {
        properties.insert(u"label"_s, protocolLabel(action->text()));
        properties.insert(u"enabled"_s, action->isEnabled());
        if (action->menu() || opensSubmenuOnDemand(action))
            properties.insert(u"children-display"_s, u"submenu"_s);
        if (!action->shortcut().isEmpty())
            properties.insert(u"shortcut"_s,
                              QVariant::fromValue(protocolShortcut(action->shortcut())));
    }
    properties.insert(u"visible"_s, action->isVisible());
    return chosen(properties, names);
}

DBusMenuLayoutItem DBusMenuExporter::layoutOf(int id, QMenu* menu, int depth,
                                              const QStringList& names) {
    DBusMenuLayoutItem item;
    item.id = id;
    if (id == 0)
        item.properties.insert(u"children-display"_s, u"submenu"_s);
    else
        item.properties = propertiesOf(actionOf(id), names);
    if (depth == 0)
        return item;
    if (!menu) {
        if (QAction* entry = id == 0 ? nullptr : actionOf(id); entry && opensSubmenuOnDemand(entry))
            item.children.append(placeholderLayout(id, entry, names));
        return item;
    }
    watch(menu);
    const QList<QAction*> actions = menu->actions();
    for (QAction* action : actions)
        item.children.append(layoutOf(idOf(action), action->menu(), depth - 1, names));
    return item;
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
    layout = layoutOf(parentId, menuOf(parentId), recursionDepth, propertyNames);
    return m_revision;
}

DBusMenuItemList DBusMenuExporter::GetGroupProperties(const QList<int>& ids,
                                                      const QStringList& propertyNames) {
    DBusMenuItemList items;
    // No ids: every entry.
    const QList<int> wanted = ids.isEmpty() ? m_actions.keys() : ids;
    for (const int id : wanted) {
        if (QAction* action = actionOf(id)) {
            items.append({id, propertiesOf(action, propertyNames)});
        } else if (const auto entry = m_placeholderEntries.constFind(id);
                   entry != m_placeholderEntries.cend() && actionOf(*entry)) {
            items.append({id, chosen(placeholderProperties(actionOf(*entry)), propertyNames)});
        }
    }
    return items;
}

QDBusVariant DBusMenuExporter::GetProperty(int id, const QString& name) {
    QAction* action = actionOf(id);
    if (const auto entry = m_placeholderEntries.constFind(id);
        !action && entry != m_placeholderEntries.cend() && actionOf(*entry))
        return QDBusVariant(placeholderProperties(actionOf(*entry)).value(name));
    if (!action) {
        rejectUnknown(id);
        return {};
    }
    return QDBusVariant(propertiesOf(action).value(name));
}

void DBusMenuExporter::Event(int id, const QString& eventId, const QDBusVariant&, uint) {
    if (!handle(id, eventId))
        rejectUnknown(id);
}

QList<int> DBusMenuExporter::EventGroup(const DBusMenuEventList& events) {
    QList<int> idErrors;
    for (const DBusMenuEvent& event : events)
        if (!handle(event.id, event.eventId))
            idErrors.append(event.id);
    return idErrors;
}

bool DBusMenuExporter::handle(int id, const QString& eventId) {
    QAction* action = id == 0 ? nullptr : actionOf(id);
    // A stand-in entry is disabled: nothing happens to it.
    if (id != 0 && !action)
        return m_placeholderEntries.contains(id);
    if (eventId == u"clicked"_s) {
        // As in a Qt-drawn menu, an entry that opens a submenu is not chosen. Queued: the
        // action may open a modal alert, and the panel waits for this call's answer.
        if (action && action->isEnabled() && !action->menu())
            QMetaObject::invokeMethod(action, &QAction::trigger, Qt::QueuedConnection);
    } else if (eventId == u"hovered"_s) {
        if (action)
            action->hover();
    } else if (eventId == u"opened"_s) {
        if (QMenu* menu = menuToShow(id); menu && !m_open.contains(menu))
            opened(menu);
    } else if (eventId == u"closed"_s) {
        if (QMenu* menu = menuOf(id)) {
            m_open.remove(menu);
            Q_EMIT menu->aboutToHide();
        }
    }
    return true;
}

void DBusMenuExporter::opened(QMenu* menu) {
    m_open.insert(menu);
    Q_EMIT menu->aboutToShow();
}

bool DBusMenuExporter::AboutToShow(int id) {
    const quint64 before = m_changes;
    QMenu* menu = menuToShow(id);
    if (!menu) {
        rejectUnknown(id);
        return false;
    }
    // Whatever the menu changes before it is shown (an entry enabled, a submenu filled from a
    // cache, made on demand) is worth reading again at once.
    opened(menu);
    return m_changes != before;
}

QList<int> DBusMenuExporter::AboutToShowGroup(const QList<int>& ids, QList<int>& idErrors) {
    QList<int> updatesNeeded;
    idErrors.clear();
    for (const int id : ids) {
        const quint64 before = m_changes;
        QMenu* menu = menuToShow(id);
        if (!menu) {
            idErrors.append(id);
            continue;
        }
        opened(menu);
        if (m_changes != before)
            updatesNeeded.append(id);
    }
    return updatesNeeded;
}

void DBusMenuExporter::watch(QMenu* menu) {
    if (m_watched.contains(menu))
        return;
    m_watched.insert(menu);
    menu->installEventFilter(this);
    connect(menu, &QObject::destroyed, this, [this, menu] {
        m_watched.remove(menu);
        m_open.remove(menu);
    });
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
        if (!m_makingSubmenu)
            changed(menu);
        if (event->type() != QEvent::ActionRemoved) {
            QAction* action = static_cast<QActionEvent*>(event)->action();
            if (action->menu())
                watch(action->menu());
        }
        break;
    }
    default:
        break;
    }
    return QObject::eventFilter(watched, event);
}

void DBusMenuExporter::changed(QMenu* menu) {
    ++m_changes;
    if (menu && !m_changed.contains(menu))
        m_changed.append(menu);
    if (m_announcing)
        return;
    // Changes come in bursts (a submenu emptied and filled); the panel hears of them once.
    m_announcing = true;
    QTimer::singleShot(0, this, &DBusMenuExporter::announce);
}

void DBusMenuExporter::announce() {
    m_announcing = false;
    QList<int> parents;
    if (m_wholeMenuChanged) {
        parents.append(0);
    } else {
        for (const auto& menu : std::as_const(m_changed)) {
            // A menu no longer reachable from the published one concerns no panel.
            if (!menu || (menu != m_menu && !m_ids.contains(menu->menuAction())))
                continue;
            const int parent = idOfMenu(menu);
            if (!parents.contains(parent))
                parents.append(parent);
        }
    }
    m_changed.clear();
    m_wholeMenuChanged = false;
    for (const int parent : std::as_const(parents))
        Q_EMIT LayoutUpdated(++m_revision, parent);
}
