#pragma once

#include <QHash>
#include <QList>
#include <QMenu>
#include <QObject>
#include <QPointer>
#include <QString>

#include <optional>

class QAction;

// The ids under which panels know the published menu and its entries: 0 for the menu itself,
// one for each QAction for as long as it exists, and one for the stand-in of each submenu not
// made yet. When another menu replaces the published one, its entries take over the ids of the
// entries with the same label at the same place, in that menu or in the one before, so that a
// panel updates what it shows instead of rebuilding it.
class DBusMenuEntryIds : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

    // The published menu (not owned); none when an empty menu is published.
    QMenu* menu() const { return m_menu; }
    void setMenu(QMenu* menu);

    // The entry's id, given now if it has none.
    int idOf(QAction* action);
    std::optional<int> knownIdOf(QAction* action) const;
    // The id of a published menu; none for menus no panel has seen.
    std::optional<int> knownIdOfMenu(const QMenu* menu) const;
    QAction* actionOf(int id) const { return m_actions.value(id); }
    // The menu an id opens: the published menu for 0, else the entry's submenu.
    QMenu* menuOf(int id) const;
    // The ids of all entries (not the menu itself).
    QList<int> entryIds() const { return m_actions.keys(); }

    // The id of the stand-in for the submenu of the entry id, given now if it has none. Kept
    // once the submenu is made, for the panels that still know it.
    int placeholderIdOf(int id);
    bool isPlaceholder(int id) const;
    // The entry whose submenu the stand-in stands for.
    QAction* entryOfPlaceholder(int placeholderId) const;

Q_SIGNALS:
    // The entry left the published menu (or is gone); if it comes back, it is new to panels.
    void released(int id);
    // An entry of a new menu took over the id of the entry it stands for.
    void takenOver(int id);
    // The entries of the submenu of id, taken over from a replaced menu, are others than before.
    void entriesChanged(int id);

private:
    // An entry of a replaced menu, kept for the next menu that may bring it back.
    struct Retired {
        int id = 0;
        // Replacements since it left.
        int age = 0;
    };

    void bind(QAction* action, int id);
    // The action leaves the published menu (or is gone).
    void release(QAction* action);
    // Gives the entries of the new menu the ids of the entries they stand for in the menu it
    // replaces, or in the one before.
    void adoptIds(QMenu* from, QMenu* to);
    void adoptInto(const QMenu* from, QMenu* to, const QString& path,
                   const QHash<QString, QAction*>& previous);
    // The entries with ids below menu, by where they stand.
    void collectEntries(const QMenu* menu, const QString& path,
                        QHash<QString, QAction*>& entries) const;

    QPointer<QMenu> m_menu;
    QHash<QAction*, int> m_ids;
    QHash<int, QAction*> m_actions;
    // The stand-ins by the entry's id, and the other way.
    QHash<int, int> m_placeholderIds;
    QHash<int, int> m_placeholderEntries;
    int m_nextId = 1;
    // Entries of replaced menus, by where they stood.
    QHash<QString, Retired> m_retired;
};
