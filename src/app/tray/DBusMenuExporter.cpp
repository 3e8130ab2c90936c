#include "app/tray/DBusMenuExporter.h"

#include <QAction>
#include <QActionEvent>
#include <QDBusMetaType>
#include <QEvent>
#include <QGuiApplication>
#include <QKeySequence>
#include <QMenu>
#include <QTimer>

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
        m_told.remove(id);
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

int DBusMenuExporter::idOfMenu(const QMenu* menu) {
    if (menu == m_menu)
        return 0;
    return idOf(menu->menuAction());
}

QVariantMap DBusMenuExporter::currentProperties(int id) const {
    QVariantMap properties;
    if (id == 0) {
        properties.insert(u"children-display"_s, u"submenu"_s);
        return properties;
    }
    const QAction* action = actionOf(id);
    if (action->isSeparator()) {
        properties.insert(u"type"_s, u"separator"_s);
    } else {
        properties.insert(u"label"_s, protocolLabel(action->text()));
        properties.insert(u"enabled"_s, action->isEnabled());
        if (action->menu())
            properties.insert(u"children-display"_s, u"submenu"_s);
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
    if (names.isEmpty())
        return properties;
    QVariantMap chosen;
    for (const QString& name : names)
        if (properties.contains(name))
            chosen.insert(name, properties.value(name));
    return chosen;
}

DBusMenuLayoutItem DBusMenuExporter::layoutOf(int id, QMenu* menu, int depth,
                                              const QStringList& names) {
    DBusMenuLayoutItem item;
    item.id = id;
    item.properties = propertiesOf(id, names);
    if (!menu || depth == 0)
        return item;
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
    // No ids: every entry, and the menu itself.
    QList<int> wanted = ids;
    if (wanted.isEmpty())
        wanted = QList<int>{0} + m_actions.keys();
    for (const int id : std::as_const(wanted))
        if (id == 0 || actionOf(id))
            items.append({id, propertiesOf(id, propertyNames)});
    return items;
}

QDBusVariant DBusMenuExporter::GetProperty(int id, const QString& name) {
    if (id != 0 && !actionOf(id)) {
        rejectUnknown(id);
        return {};
    }
    return QDBusVariant(propertiesOf(id).value(name));
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
    if (id != 0 && !action)
        return false;
    if (eventId == u"clicked"_s) {
        // As in a Qt-drawn menu, an entry that opens a submenu is not chosen. Queued: the
        // action may open a modal alert, and the panel waits for this call's answer.
        if (action && action->isEnabled() && !action->menu())
            QMetaObject::invokeMethod(action, &QAction::trigger, Qt::QueuedConnection);
    } else if (eventId == u"hovered"_s) {
        if (action)
            action->hover();
    } else if (eventId == u"opened"_s) {
        if (QMenu* menu = menuOf(id); menu && !m_open.contains(menu))
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
    QMenu* menu = menuOf(id);
    if (!menu) {
        rejectUnknown(id);
        return false;
    }
    // Whatever the menu changes before it is shown (an entry enabled, a submenu filled from a
    // cache) is worth reading again at once.
    const quint64 before = m_changes;
    opened(menu);
    return m_changes != before;
}

QList<int> DBusMenuExporter::AboutToShowGroup(const QList<int>& ids, QList<int>& idErrors) {
    QList<int> updatesNeeded;
    idErrors.clear();
    for (const int id : ids) {
        QMenu* menu = menuOf(id);
        if (!menu) {
            idErrors.append(id);
            continue;
        }
        const quint64 before = m_changes;
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
        QAction* action = static_cast<QActionEvent*>(event)->action();
        if (event->type() == QEvent::ActionChanged)
            entryChanged(menu, action);
        else
            changed(menu);
        if (event->type() != QEvent::ActionRemoved && action->menu())
            watch(action->menu());
        break;
    }
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
    for (const QString& structural : {u"type"_s, u"children-display"_s}) {
        if (now.value(structural) != told->value(structural)) {
            changed(menu);
            return;
        }
    }
    if (now == *told || m_changedEntries.contains(*id))
        return;
    m_changedEntries.append(*id);
    if (!m_announcing) {
        m_announcing = true;
        QTimer::singleShot(0, this, &DBusMenuExporter::announce);
    }
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
