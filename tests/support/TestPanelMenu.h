#pragma once

#include "TestStatusNotifierHost.h"

#include <QHash>
#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QVariantMap>

// The menu as one real panel keeps and shows it, for tests: it reads the exported menu, opens
// and closes menus and follows the exporter's announcements the way the panel's own menu
// importer does, with that importer's habits (read from its code). A test that passes against
// the literal protocol but fails in a panel fails here too, in seconds.
class TestPanelMenu {
public:
    enum class Habits {
        // GNOME Shell's AppIndicator extension (dbusMenu.js): reads the whole layout with the
        // entries' kinds only, the rest with GetGroupProperties for new entries; sends "opened"
        // and then AboutToShow; rebuilds an entry (closing its submenu) whenever its kind is
        // sent again.
        Gnome,
        // KDE Plasma's copy of libdbusmenu-qt (plasma-workspace's DBusMenuImporter): reads one
        // menu level at a time, shows a submenu at once with what it has (empty the first time),
        // sends AboutToShow and then "opened", reads the submenu again when the answer says so
        // or it is empty, and then ignores the next layout update of it.
        Plasma,
        // libdbusmenu-glib, under xfce4-panel and waybar: with protocol version 3 it opens menus
        // with AboutToShowGroup and sends events with EventGroup, reads the whole layout, and
        // the properties of every entry it keeps, the menu itself (id 0) included. Its GTK
        // side (libdbusmenu-gtk) shows a submenu at once with what it holds, before any answer,
        // and GTK on Wayland never grows it.
        LibdbusmenuGlib,
        // libdbusmenu-qt, under lxqt-panel: waits up to 3 s for the answer to AboutToShow before
        // it shows the menu, reads it again when told or when empty (and then ignores the next
        // layout update of it), and reads every submenu of what it reads.
        LibdbusmenuQt,
    };

    // One entry as the panel keeps it.
    struct Entry {
        QVariantMap properties;
        QList<int> children;
        // Whether the panel has read the entries of its submenu.
        bool read = false;
    };

    TestPanelMenu(TestStatusNotifierHost& host, Habits habits);

    // Reads the menu as the panel does when the item appears.
    bool start();
    // The user opens the menu of id (0: the panel's menu itself), as this panel tells the
    // program. Returns whether every call succeeded.
    bool open(int id);
    bool close(int id);
    // Handles the announcements that arrived, as the panel would; true when every call it made
    // succeeded.
    bool follow();

    // What the panel shows in the menu of id now (separators as "---", hidden entries left out).
    QStringList shownLabels(int id) const;
    // What it showed in the menu of id when that opened, before any answer arrived.
    QStringList shownWhenOpened(int id) const { return m_shownWhenOpened.value(id); }
    // The id of the first entry (depth first) that shows this label.
    int find(const QString& label, int below = 0) const;
    bool isEnabled(int id) const;
    // Entries the panel rebuilt although they were already there (GNOME: an open submenu
    // closes when that happens to it).
    int rebuilds(int id) const { return m_rebuilds.value(id); }
    // Open submenus the panel had to close that way.
    int collapses() const { return m_collapses; }
    // Calls that failed, with their error messages.
    QStringList errors() const { return m_errors; }

private:
    bool readAll();
    bool readMenu(int id);
    void takeLayout(const TestStatusNotifierHost::MenuNode& node, bool recursive);
    bool takeProperties(const QList<int>& ids);
    bool layoutUpdated(int parent);
    void fail(const QString& what);

    TestStatusNotifierHost& m_host;
    Habits m_habits;
    QHash<int, Entry> m_entries;
    QSet<int> m_open;
    QHash<int, QStringList> m_shownWhenOpened;
    // Plasma and libdbusmenu-qt: menus whose next layout update is ignored.
    QSet<int> m_ignoreNextUpdate;
    QHash<int, int> m_rebuilds;
    int m_collapses = 0;
    qsizetype m_seenLayoutUpdates = 0;
    qsizetype m_seenPropertyUpdates = 0;
    QStringList m_errors;
};
