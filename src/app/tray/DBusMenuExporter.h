#pragma once

#include "app/tray/DBusMenuEvent.h"
#include "app/tray/DBusMenuItem.h"
#include "app/tray/DBusMenuLayoutItem.h"

#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusVariant>
#include <QHash>
#include <QList>
#include <QMenu>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QStringList>

class QAction;

// Publishes a QMenu and its submenus over com.canonical.dbusmenu, so that a panel draws the
// menu itself. Entries are the menus' QActions; the panel's about-to-show calls, clicks,
// highlights and closings reach them as a Qt-drawn menu's would (QMenu::aboutToShow,
// QAction::trigger, QAction::hover, QMenu::aboutToHide), and every change of the menus is
// announced with a layout update, also when the whole menu is replaced. Labels go out in the
// protocol's own notation, so the panel shows them exactly as the Qt-drawn menu does.
class DBusMenuExporter : public QObject, protected QDBusContext {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.canonical.dbusmenu")
    Q_PROPERTY(uint Version READ version)
    Q_PROPERTY(QString TextDirection READ textDirection)
    Q_PROPERTY(QString Status READ status)
    Q_PROPERTY(QStringList IconThemePath READ iconThemePath)
public:
    explicit DBusMenuExporter(QObject* parent = nullptr);
    ~DBusMenuExporter() override;

    // Exports this object at path on connection.
    bool registerOn(QDBusConnection connection, const QString& path);

    // The menu to publish (not owned); none publishes an empty menu.
    void setMenu(QMenu* menu);

    // A Qt menu text in the protocol's notation: "&&" is a plain "&", "&x" marks a mnemonic
    // ("_x"), and an underscore is written "__".
    static QString protocolLabel(const QString& text);

    uint version() const { return 3; }
    QString textDirection() const;
    QString status() const;
    QStringList iconThemePath() const { return {}; }

public Q_SLOTS:
    Q_SCRIPTABLE uint GetLayout(int parentId, int recursionDepth, const QStringList& propertyNames,
                                DBusMenuLayoutItem& layout);
    Q_SCRIPTABLE DBusMenuItemList GetGroupProperties(const QList<int>& ids,
                                                     const QStringList& propertyNames);
    Q_SCRIPTABLE QDBusVariant GetProperty(int id, const QString& name);
    Q_SCRIPTABLE void Event(int id, const QString& eventId, const QDBusVariant& data,
                            uint timestamp);
    Q_SCRIPTABLE QList<int> EventGroup(const DBusMenuEventList& events);
    Q_SCRIPTABLE bool AboutToShow(int id);
    Q_SCRIPTABLE QList<int> AboutToShowGroup(const QList<int>& ids, QList<int>& idErrors);

Q_SIGNALS:
    Q_SCRIPTABLE void LayoutUpdated(uint revision, int parent);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    int idOf(QAction* action);
    QAction* actionOf(int id) const;
    // The menu an id opens: the published menu for 0, else the entry's submenu.
    QMenu* menuOf(int id) const;
    // The same for a menu the panel is about to show: an entry whose menu makes submenus on
    // demand is given its submenu first.
    QMenu* menuToShow(int id);
    // Whether action is an entry of a menu with the property "submenusOnDemand" that has not got
    // its submenu yet: the menu makes it when the entry is highlighted. Until then a panel reads
    // the submenu as one disabled entry, the text of the menu's property "submenuPlaceholder"
    // ("Loading…"), which is what the submenu would show when made.
    static bool opensSubmenuOnDemand(const QAction* action);
    DBusMenuLayoutItem placeholderLayout(int entryId, QAction* entry, const QStringList& names);
    static QVariantMap placeholderProperties(const QAction* entry);
    int idOfMenu(const QMenu* menu);
    QVariantMap propertiesOf(QAction* action, const QStringList& names = {});
    DBusMenuLayoutItem layoutOf(int id, QMenu* menu, int depth, const QStringList& names);
    void watch(QMenu* menu);
    void changed(QMenu* menu);
    void announce();
    // Handles one event; false when the id is unknown.
    bool handle(int id, const QString& eventId);
    void opened(QMenu* menu);
    void rejectUnknown(int id);

    QPointer<QMenu> m_menu;
    QHash<QAction*, int> m_ids;
    QHash<int, QPointer<QAction>> m_actions;
    // The stand-in entries of submenus not made yet (kept once made, for the panels that still
    // know them): by the entry's id, and the other way.
    QHash<int, int> m_placeholderIds;
    QHash<int, int> m_placeholderEntries;
    bool m_makingSubmenu = false;
    int m_nextId = 1;
    uint m_revision = 1;
    QSet<const QMenu*> m_watched;
    // Menus changed since the last announcement, and changes ever seen.
    QList<QPointer<QMenu>> m_changed;
    quint64 m_changes = 0;
    bool m_announcing = false;
    bool m_wholeMenuChanged = false;
    // Menus the panel shows now, so that its "opened" event after AboutToShow counts once.
    QSet<const QMenu*> m_open;
};
