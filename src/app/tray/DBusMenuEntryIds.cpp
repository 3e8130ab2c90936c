#include "app/tray/DBusMenuEntryIds.h"

#include "app/tray/DBusMenuItemProperties.h"

#include <QAction>

#include <tuple>

using namespace Qt::StringLiterals;

namespace {

// What stands for each entry of a menu when another menu replaces it: its kind, its label and
// how many entries before it in the same menu have both.
QStringList entryKeys(const QMenu* menu) {
    QStringList keys;
    QHash<QString, int> seen;
    const QList<QAction*> actions = menu->actions();
    for (const QAction* action : actions) {
        const QString kind = action->isSeparator()                          ? u"-"_s
                             : DBusMenuItemProperties::opensSubmenu(action) ? u">"_s
                                                                            : u"."_s;
        const QString key = kind + (action->isSeparator() ? QString() : action->text());
        keys.append(key + u'\n' + QString::number(seen[key]++));
    }
    return keys;
}

} // namespace

void DBusMenuEntryIds::setMenu(QMenu* menu) {
    QMenu* previous = m_menu;
    m_menu = menu;
    adoptIds(previous, menu);
}

int DBusMenuEntryIds::idOf(QAction* action) {
    const auto known = m_ids.constFind(action);
    if (known != m_ids.cend())
        return *known;
    const int id = m_nextId++;
    bind(action, id);
    return id;
}

std::optional<int> DBusMenuEntryIds::knownIdOf(QAction* action) const {
    const auto id = m_ids.constFind(action);
    if (id == m_ids.cend())
        return std::nullopt;
    return *id;
}

std::optional<int> DBusMenuEntryIds::knownIdOfMenu(const QMenu* menu) const {
    if (menu == m_menu)
        return 0;
    return knownIdOf(menu->menuAction());
}

QMenu* DBusMenuEntryIds::menuOf(int id) const {
    if (id == 0)
        return m_menu;
    QAction* action = actionOf(id);
    return action ? action->menu() : nullptr;
}

int DBusMenuEntryIds::placeholderIdOf(int id) {
    auto known = m_placeholderIds.constFind(id);
    if (known == m_placeholderIds.cend()) {
        known = m_placeholderIds.insert(id, m_nextId++);
        m_placeholderEntries.insert(*known, id);
    }
    return *known;
}

bool DBusMenuEntryIds::isPlaceholder(int id) const {
    const auto entry = m_placeholderEntries.constFind(id);
    return entry != m_placeholderEntries.cend() && actionOf(*entry);
}

QAction* DBusMenuEntryIds::entryOfPlaceholder(int placeholderId) const {
    return actionOf(m_placeholderEntries.value(placeholderId));
}

void DBusMenuEntryIds::bind(QAction* action, int id) {
    m_ids.insert(action, id);
    m_actions.insert(id, action);
    connect(action, &QObject::destroyed, this, [this, action] { release(action); });
}

void DBusMenuEntryIds::release(QAction* action) {
    const auto id = m_ids.constFind(action);
    if (id == m_ids.cend())
        return;
    const int entry = *id;
    m_ids.erase(id);
    if (m_actions.value(entry) != action)
        return;
    m_actions.remove(entry);
    m_placeholderEntries.remove(m_placeholderIds.take(entry));
    Q_EMIT released(entry);
}

void DBusMenuEntryIds::collectEntries(const QMenu* menu, const QString& path,
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

void DBusMenuEntryIds::adoptIds(QMenu* from, QMenu* to) {
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

void DBusMenuEntryIds::adoptInto(const QMenu* from, QMenu* to, const QString& path,
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
            Q_EMIT takenOver(id);
        } else if (retired != m_retired.cend() && !m_actions.contains(retired->id)) {
            bind(action, retired->id);
        }
        after.append(m_ids.value(action, -1));
        if (action->menu())
            submenus.append({old ? old->menu() : nullptr, action->menu(), entryPath});
    }
    if (from && after != before) {
        if (const auto id = knownIdOfMenu(to); id && *id != 0)
            Q_EMIT entriesChanged(*id);
    }
    for (const auto& [oldSubmenu, submenu, submenuPath] : submenus)
        adoptInto(oldSubmenu, submenu, submenuPath, previous);
}
