#include "TestPanelMenu.h"

using namespace Qt::StringLiterals;

namespace {

// What each panel asks for when it reads a layout.
QStringList layoutProperties(TestPanelMenu::Habits habits) {
    switch (habits) {
    case TestPanelMenu::Habits::Gnome:
        return {u"type"_s, u"children-display"_s};
    case TestPanelMenu::Habits::LibdbusmenuGlib:
        return {u"type"_s,           u"label"_s, u"visible"_s, u"enabled"_s, u"children-display"_s,
                u"accessible-desc"_s};
    case TestPanelMenu::Habits::Plasma:
    case TestPanelMenu::Habits::LibdbusmenuQt:
        return {};
    }
    return {};
}

bool isKind(const QString& property) {
    return property == u"type"_s || property == u"children-display"_s;
}

} // namespace

TestPanelMenu::TestPanelMenu(TestStatusNotifierHost& host, Habits habits)
    : m_host(host)
    , m_habits(habits) {
    m_entries.insert(0, {});
}

void TestPanelMenu::fail(const QString& what) {
    m_errors.append(what);
}

bool TestPanelMenu::start() {
    m_seenLayoutUpdates = m_host.layoutUpdates().size();
    m_seenPropertyUpdates = m_host.updatedProperties().size();
    switch (m_habits) {
    case Habits::Gnome:
        // "Dropbox requires us to call AboutToShow(0) first."
        if (!m_host.aboutToShow(0))
            fail(u"AboutToShow(0)"_s);
        return readAll() && m_errors.isEmpty();
    case Habits::LibdbusmenuGlib:
        return readAll() && m_errors.isEmpty();
    case Habits::Plasma:
    case Habits::LibdbusmenuQt:
        return readMenu(0) && m_errors.isEmpty();
    }
    return false;
}

bool TestPanelMenu::readAll() {
    const auto layout = m_host.layout(0, -1, layoutProperties(m_habits));
    if (!layout) {
        fail(u"GetLayout(0)"_s);
        return false;
    }
    // Entries the panel keeps, and those it has not seen before.
    const QSet<int> known(m_entries.keyBegin(), m_entries.keyEnd());
    takeLayout(*layout, true);
    // Entries no longer in the layout are dropped.
    QSet<int> reachable{0};
    QList<int> toVisit{0};
    while (!toVisit.isEmpty()) {
        const QList<int> children = m_entries.value(toVisit.takeFirst()).children;
        for (const int child : children)
            if (!reachable.contains(child)) {
                reachable.insert(child);
                toVisit.append(child);
            }
    }
    for (auto it = m_entries.begin(); it != m_entries.end();)
        it = reachable.contains(it.key()) ? std::next(it) : m_entries.erase(it);
    QList<int> fresh;
    QList<int> kept;
    for (auto it = m_entries.cbegin(); it != m_entries.cend(); ++it)
        (known.contains(it.key()) ? kept : fresh).append(it.key());
    switch (m_habits) {
    case Habits::Gnome:
        // Properties of new entries only.
        return fresh.isEmpty() || takeProperties(fresh);
    case Habits::LibdbusmenuGlib:
        // Every entry it keeps is read again, the menu itself first.
        return takeProperties(kept + fresh);
    case Habits::Plasma:
    case Habits::LibdbusmenuQt:
        break;
    }
    return true;
}

bool TestPanelMenu::readMenu(int id) {
    // libdbusmenu-qt reads every submenu of what it reads; Plasma's copy one level only.
    const auto layout = m_host.layout(id, 1, {});
    if (!layout) {
        fail(u"GetLayout(%1)"_s.arg(id));
        return false;
    }
    takeLayout(*layout, false);
    if (m_habits == Habits::LibdbusmenuQt) {
        const QList<int> children = m_entries.value(id).children;
        for (const int child : children)
            if (m_entries.value(child).properties.value(u"children-display"_s) == u"submenu"_s &&
                !readMenu(child))
                return false;
    }
    return true;
}

void TestPanelMenu::takeLayout(const TestStatusNotifierHost::MenuNode& node, bool recursive) {
    Entry& entry = m_entries[node.id];
    if (m_habits == Habits::Gnome && node.id != 0) {
        // Whatever kind arrives, the entry is made again.
        const bool rebuilt = std::any_of(node.properties.keyBegin(), node.properties.keyEnd(),
                                         [](const QString& key) { return isKind(key); });
        if (rebuilt && !entry.properties.isEmpty()) {
            ++m_rebuilds[node.id];
            if (m_open.remove(node.id))
                ++m_collapses;
        }
    }
    for (auto it = node.properties.cbegin(); it != node.properties.cend(); ++it)
        entry.properties.insert(it.key(), it.value());
    if (m_habits == Habits::Plasma || m_habits == Habits::LibdbusmenuQt) {
        // These read all properties and take them as they are.
        entry.properties = node.properties;
    }
    entry.children.clear();
    entry.read = true;
    for (const auto& child : node.children)
        entry.children.append(child.id);
    // Entries taken in below may move the hash's storage, entry with it.
    for (const auto& child : node.children) {
        if (recursive) {
            takeLayout(child, true);
        } else {
            Entry& known = m_entries[child.id];
            known.properties = child.properties;
        }
    }
}

bool TestPanelMenu::takeProperties(const QList<int>& ids) {
    const auto answer = m_host.groupProperties(ids);
    if (!answer) {
        fail(u"GetGroupProperties"_s);
        return false;
    }
    QSet<int> answered;
    for (const auto& [id, properties] : *answer) {
        answered.insert(id);
        Entry& entry = m_entries[id];
        if (m_habits == Habits::Gnome && id != 0 && !entry.properties.isEmpty()) {
            for (auto it = properties.cbegin(); it != properties.cend(); ++it) {
                if (isKind(it.key())) {
                    ++m_rebuilds[id];
                    if (m_open.remove(id))
                        ++m_collapses;
                    break;
                }
            }
        }
        for (auto it = properties.cbegin(); it != properties.cend(); ++it)
            entry.properties.insert(it.key(), it.value());
    }
    // libdbusmenu-glib logs "Unable to replace properties on N" for every id left out.
    for (const int id : ids)
        if (!answered.contains(id))
            fail(u"no properties for %1"_s.arg(id));
    return answered.size() == ids.size();
}

bool TestPanelMenu::open(int id) {
    m_shownWhenOpened.insert(id, shownLabels(id));
    m_open.insert(id);
    switch (m_habits) {
    case Habits::Gnome: {
        if (!m_host.event(id, u"opened"_s))
            fail(u"Event opened %1"_s.arg(id));
        const auto update = m_host.aboutToShow(id);
        if (!update)
            fail(u"AboutToShow(%1)"_s.arg(id));
        else if (*update)
            readAll();
        break;
    }
    case Habits::Plasma:
    case Habits::LibdbusmenuQt: {
        const auto update = m_host.aboutToShow(id);
        if (!update) {
            fail(u"AboutToShow(%1)"_s.arg(id));
        } else if (*update || m_entries.value(id).children.isEmpty()) {
            m_ignoreNextUpdate.insert(id);
            readMenu(id);
        }
        if (!m_host.event(id, u"opened"_s))
            fail(u"Event opened %1"_s.arg(id));
        // libdbusmenu-qt showed nothing until now.
        if (m_habits == Habits::LibdbusmenuQt)
            m_shownWhenOpened.insert(id, shownLabels(id));
        break;
    }
    case Habits::LibdbusmenuGlib: {
        // The answer is not looked at; layout updates bring the changes. The menu itself gets
        // AboutToShow alone (libdbusmenu-gtk's menu_focus_cb); submenus "opened" once shown.
        const auto answer = m_host.aboutToShowGroup({id});
        if (!answer || !answer->idErrors.isEmpty())
            fail(u"AboutToShowGroup(%1)"_s.arg(id));
        if (id != 0) {
            const auto errors = m_host.eventGroup({{id, u"opened"_s}});
            if (!errors || !errors->isEmpty())
                fail(u"EventGroup opened %1"_s.arg(id));
        }
        break;
    }
    }
    return follow();
}

bool TestPanelMenu::close(int id) {
    m_open.remove(id);
    if (m_habits == Habits::LibdbusmenuGlib && id == 0)
        return follow();
    if (m_habits == Habits::LibdbusmenuGlib) {
        const auto errors = m_host.eventGroup({{id, u"closed"_s}});
        if (!errors || !errors->isEmpty())
            fail(u"EventGroup closed %1"_s.arg(id));
    } else if (!m_host.event(id, u"closed"_s)) {
        fail(u"Event closed %1"_s.arg(id));
    }
    return follow();
}

bool TestPanelMenu::follow() {
    const auto properties = m_host.updatedProperties();
    for (; m_seenPropertyUpdates < properties.size(); ++m_seenPropertyUpdates) {
        const auto& [id, values] = properties[m_seenPropertyUpdates];
        if (!m_entries.contains(id))
            continue;
        for (auto it = values.cbegin(); it != values.cend(); ++it)
            m_entries[id].properties.insert(it.key(), it.value());
    }
    // New announcements may arrive while the panel reads.
    while (m_seenLayoutUpdates < m_host.layoutUpdates().size()) {
        const int parent = m_host.layoutUpdates().at(m_seenLayoutUpdates++).second;
        layoutUpdated(parent);
    }
    return m_errors.isEmpty();
}

bool TestPanelMenu::layoutUpdated(int parent) {
    switch (m_habits) {
    case Habits::Gnome:
    case Habits::LibdbusmenuGlib:
        return readAll();
    case Habits::Plasma:
    case Habits::LibdbusmenuQt:
        if (m_ignoreNextUpdate.remove(parent))
            return true;
        // A menu it never made (an entry it does not know) is not read.
        if (parent != 0 && !m_entries.contains(parent))
            return true;
        return readMenu(parent);
    }
    return true;
}

QStringList TestPanelMenu::shownLabels(int id) const {
    QStringList labels;
    const QList<int> children = m_entries.value(id).children;
    for (const int child : children) {
        const QVariantMap& properties = m_entries.value(child).properties;
        if (!properties.value(u"visible"_s, true).toBool())
            continue;
        if (properties.value(u"type"_s).toString() == u"separator"_s) {
            labels.append(u"---"_s);
            continue;
        }
        TestStatusNotifierHost::MenuNode node;
        node.properties = properties;
        labels.append(node.shownLabel());
    }
    return labels;
}

int TestPanelMenu::find(const QString& label, int below) const {
    const QList<int> children = m_entries.value(below).children;
    for (const int child : children) {
        TestStatusNotifierHost::MenuNode node;
        node.properties = m_entries.value(child).properties;
        if (node.shownLabel() == label)
            return child;
        if (const int deeper = find(label, child); deeper >= 0)
            return deeper;
    }
    return -1;
}

bool TestPanelMenu::isEnabled(int id) const {
    return m_entries.value(id).properties.value(u"enabled"_s, true).toBool();
}
