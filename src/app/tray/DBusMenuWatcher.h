#pragma once

#include <QObject>
#include <QSet>

class QAction;
class QMenu;

// Follows menus and their submenus as the program changes them: entries added, removed or
// changed, and menus done being filled (their dynamic property "loading" back to false).
class DBusMenuWatcher : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

    // Follows menu, its submenus and those it gets later.
    void watch(QMenu* menu);

    // Whether menu is being filled: its dynamic property "loading" is true.
    static bool isLoading(const QMenu* menu);

Q_SIGNALS:
    // Entries were added to menu or removed from it.
    void entriesChanged(QMenu* menu);
    void entryChanged(QMenu* menu, QAction* action);
    // A menu being filled is filled.
    void filled();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    QSet<const QMenu*> m_watched;
};
