#pragma once

#include "app/tray/DBusMenuEvent.h"
#include "app/tray/DBusMenuItem.h"
#include "app/tray/DBusMenuItemKeys.h"
#include "app/tray/DBusMenuLayoutItem.h"

#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusMessage>
#include <QDBusServiceWatcher>
#include <QDBusVariant>
#include <QHash>
#include <QList>
#include <QMenu>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QStringList>
#include <QTimer>

#include <chrono>
#include <optional>

class QAction;

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
    // The longest an about-to-show call waits for a menu being filled. libdbusmenu-qt panels
    // (LXQt) wait up to 3 s for the answer before they show the menu as it is.
    static constexpr std::chrono::milliseconds fillWait = std::chrono::seconds(2);
    // A panel that announced its menu open and has not been heard of for this long is taken to
    // have closed it without saying so.
    static constexpr std::chrono::milliseconds silentPanelTimeout = std::chrono::minutes(2);

    explicit DBusMenuExporter(QObject* parent = nullptr);
    ~DBusMenuExporter() override;

    // Exports this object at path on connection.
    bool registerOn(QDBusConnection connection, const QString& path);

    // The menu to publish (not owned); none publishes an empty menu.
    void setMenu(QMenu* menu);

    // Whether a panel shows the menu now, by what it said.
    bool isMenuOpen() const { return m_open.contains(0); }

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
    Q_SCRIPTABLE void ItemsPropertiesUpdated(const DBusMenuItemList& updatedProperties,
                                             const DBusMenuItemKeysList& removedProperties);
    // The panel closed the menu it had open.
    void menuClosed();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    // What the exporter knows of one panel (one caller on the bus).
    struct Reader {
        // The version of each menu whose entries the panel read.
        QHash<int, quint64> readVersions;
        // Entries whose kind (separator, submenu) the panel was told in a layout.
        QSet<int> toldKinds;
    };
    // An about-to-show call waiting for its menus to be filled.
    struct PendingShow {
        QDBusMessage call;
        QString reader;
        QList<int> ids;
        QList<int> idErrors;
        bool group = false;
        QTimer* deadline = nullptr;
    };
    enum class Opening { None, ByEvent, ByCall };
    // An entry of a replaced menu, kept for the next menu that may bring it back.
    struct Retired {
        int id = 0;
        // Replacements since it left.
        int age = 0;
    };

    int idOf(QAction* action);
    void bind(QAction* action, int id);
    // The action leaves the published menu (or is gone).
    void release(QAction* action);
    QAction* actionOf(int id) const;
    // The menu an id opens: the published menu for 0, else the entry's submenu.
    QMenu* menuOf(int id) const;
    // The same for a menu the panel opens: an entry of a menu whose property "submenusOnDemand"
    // is true gets its submenu first, made by highlighting it as a Qt-drawn menu does.
    QMenu* menuToShow(int id);
    // The stand-in entry of a submenu not made yet.
    bool isPlaceholder(int id) const;
    QVariantMap placeholderProperties(int placeholderId) const;
    // The id of a published menu; none for menus no panel has seen.
    std::optional<int> knownIdOfMenu(const QMenu* menu) const;
    QVariantMap currentProperties(int id) const;
    // The entry's properties (id 0: the menu itself), all or those named; remembered as told.
    QVariantMap propertiesOf(int id, const QStringList& names = {});
    DBusMenuLayoutItem layoutOf(int id, QMenu* menu, int depth, const QStringList& names,
                                Reader* reader);
    Reader* callingReader();
    QString callingService() const;
    void forgetReader(const QString& service);
    void rejectUnknown(int id);
    void watch(QMenu* menu);
    // The entries of the menu of id changed (added, removed, of another kind).
    void changedMenu(int id);
    // An entry changed: its properties go out as an update, a change of kind as a new layout.
    void entryChanged(QMenu* menu, QAction* action);
    void scheduleAnnouncement();
    void announce();
    // Gives the entries of the new menu the ids of the entries they stand for in the menu it
    // replaces, or in the one before.
    void adoptIds(QMenu* from, QMenu* to);
    void adoptInto(const QMenu* from, QMenu* to, const QString& path,
                   const QHash<QString, QAction*>& previous);
    // The published entries below menu, by where they stand.
    void collectEntries(const QMenu* menu, const QString& path,
                        QHash<QString, QAction*>& entries) const;
    // Handles one event; false when the id is unknown.
    bool handle(int id, const QString& eventId);
    // The panel opens the menu of id, by an event or an about-to-show call.
    void opening(int id, Opening by);
    // The panel opened the menu of id with a grouped call (libdbusmenu-glib): if it is the
    // item's own menu, its submenus are asked to fill now.
    void fillSubmenusAhead(int id);
    void closing(int id);
    // Whether the reader read the entries of the menu of id as they are now.
    bool hasRead(const Reader& reader, int id) const;
    bool isLoading(int id) const;
    // Holds the answer to the current call until its menus are filled.
    void wait(PendingShow pending);
    // Answers the waiting calls whose menus are all filled.
    void answerFilled();
    void answer(const PendingShow& pending);
    // The menus of the call whose entries the caller has yet to read as they are now.
    QList<int> updatesNeeded(const PendingShow& pending);
    void heardFromPanel();

    QPointer<QMenu> m_menu;
    QDBusConnection m_connection{QString()};
    QHash<QAction*, int> m_ids;
    QHash<int, QAction*> m_actions;
    // The stand-in entries of submenus not made yet (kept once made, for the panels that still
    // know them): by the entry's id, and the other way.
    QHash<int, int> m_placeholderIds;
    QHash<int, int> m_placeholderEntries;
    int m_nextId = 1;
    uint m_revision = 1;
    QSet<const QMenu*> m_watched;
    // The properties of each entry as panels were last told them.
    QHash<int, QVariantMap> m_told;
    // Entries of replaced menus, by where they stood.
    QHash<QString, Retired> m_retired;
    // The version of each menu's list of entries, raised with every change of it.
    QHash<int, quint64> m_versions;
    QHash<QString, Reader> m_readers;
    QDBusServiceWatcher m_readerWatcher;
    // Menus changed since the last announcement (by id), and entries whose properties changed.
    QList<int> m_changedMenus;
    QList<int> m_changedEntries;
    bool m_announcing = false;
    // Menus the panel shows now, and how the last unmatched opening of each came.
    QSet<int> m_open;
    QHash<int, Opening> m_unpaired;
    QList<PendingShow> m_pending;
    QTimer m_silence;
};
