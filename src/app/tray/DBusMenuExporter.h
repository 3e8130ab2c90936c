#pragma once

#include "app/tray/DBusMenuAnnouncer.h"
#include "app/tray/DBusMenuEntryIds.h"
#include "app/tray/DBusMenuEvent.h"
#include "app/tray/DBusMenuItem.h"
#include "app/tray/DBusMenuItemKeys.h"
#include "app/tray/DBusMenuItemProperties.h"
#include "app/tray/DBusMenuLayoutItem.h"
#include "app/tray/DBusMenuOpenings.h"
#include "app/tray/DBusMenuPendingShows.h"
#include "app/tray/DBusMenuReaders.h"
#include "app/tray/DBusMenuWatcher.h"

#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusVariant>
#include <QList>
#include <QMenu>
#include <QObject>
#include <QStringList>

#include <chrono>

// Publishes a QMenu and its submenus over com.canonical.dbusmenu, so that a panel draws the
// menu itself. Entries are the menus' QActions; the panel's about-to-show calls, clicks,
// highlights and closings reach them as a Qt-drawn menu's would (QMenu::aboutToShow,
// QAction::trigger, QAction::hover, QMenu::aboutToHide). Entries added or removed are announced
// with a layout update; a changed label, enabled or visible flag of an entry the panel knows
// goes out as a property update, which panels apply in place. An entry keeps its id as long as
// it exists, and also when the whole menu is replaced by one with an entry of the same label at
// the same place, so that a panel updates what it shows instead of rebuilding it.
//
// A menu being filled (its dynamic property "loading" is true) has the panel's about-to-show
// call answered once it is filled, or after a short while, so that the panel shows it filled
// the first time. An entry of a menu whose dynamic property "submenusOnDemand" is true is a
// submenu to the panel before it has one: the panel opening it highlights it, which makes it.
// Labels go out in the protocol's own notation, so the panel shows them
// exactly as the Qt-drawn menu does.
class DBusMenuExporter : public QObject, protected QDBusContext {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.canonical.dbusmenu")
    Q_PROPERTY(uint Version READ version)
    Q_PROPERTY(QString TextDirection READ textDirection)
    Q_PROPERTY(QString Status READ status)
    Q_PROPERTY(QStringList IconThemePath READ iconThemePath)
public:
    // The longest an about-to-show call waits for a menu being filled.
    static constexpr std::chrono::milliseconds fillWait = DBusMenuPendingShows::fillWait;

    explicit DBusMenuExporter(QObject* parent = nullptr);
    ~DBusMenuExporter() override;

    // Exports this object at path on connection.
    bool registerOn(QDBusConnection connection, const QString& path);

    // The menu to publish (not owned); none publishes an empty menu.
    void setMenu(QMenu* menu);

    // Whether a panel shows the menu now, by what it said.
    bool isMenuOpen() const { return m_openings.isOpen(0); }

    // A Qt menu text in the protocol's notation: "&&" is a plain "&", "&x" marks a mnemonic
    // ("_x"), and an underscore is written "__".
    static QString protocolLabel(const QString& text) {
        return DBusMenuItemProperties::label(text);
    }

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
    Q_SCRIPTABLE void ItemsPropertiesUpdated(const DBusMenuItemList& updatedProperties,
                                             const DBusMenuItemKeysList& removedProperties);
    // The panel closed the menu it had open.
    void menuClosed();

private:
    DBusMenuLayoutItem layoutOf(int id, QMenu* menu, int depth, const QStringList& names,
                                DBusMenuReaders::Reader* reader);
    // The panel making the current call; none for a call from within the program.
    DBusMenuReaders::Reader* callingReader();
    QString callingService() const;
    void rejectUnknown(int id);
    // Handles one event; false when the id is unknown.
    bool handle(int id, const QString& eventId);
    bool isLoading(int id) const;
    // Holds the answer to the current call until the menus of show are filled.
    void wait(const DBusMenuPendingShows::Show& show);

    DBusMenuEntryIds m_ids;
    DBusMenuWatcher m_watcher;
    DBusMenuReaders m_readers;
    DBusMenuAnnouncer m_announcer{m_ids, m_readers};
    DBusMenuOpenings m_openings{m_ids};
    DBusMenuPendingShows m_pendingShows{m_ids, m_announcer};
};
