#pragma once

#include "app/tray/DBusImage.h"
#include "app/tray/DBusMenuExporter.h"
#include "app/tray/DBusToolTip.h"

#include <QDBusConnection>
#include <QDBusObjectPath>
#include <QDBusServiceWatcher>
#include <QIcon>
#include <QObject>
#include <QPoint>
#include <QString>

// The tray icon on panels that follow the StatusNotifierItem protocol (KDE Plasma, GNOME with
// the AppIndicator extension, Xfce, LXQt, ...): an org.kde.StatusNotifierItem on the session
// bus, registered with the panel's watcher, with its menu published by a DBusMenuExporter.
// The panel draws that menu on a right click; a left or middle click, or a panel's request to
// show a menu, reaches the program as activated or contextMenuRequested. Every property and
// method of the protocol answers, those the program has no use for with their empty values.
class StatusNotifierItem : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierItem")
    Q_PROPERTY(QString Category READ category)
    Q_PROPERTY(QString Id READ id)
    Q_PROPERTY(QString Title READ title)
    Q_PROPERTY(QString Status READ status)
    Q_PROPERTY(int WindowId READ windowId)
    Q_PROPERTY(QString IconName READ iconName)
    Q_PROPERTY(DBusImageList IconPixmap READ iconPixmap)
    Q_PROPERTY(QString IconThemePath READ iconThemePath)
    Q_PROPERTY(QString OverlayIconName READ overlayIconName)
    Q_PROPERTY(DBusImageList OverlayIconPixmap READ overlayIconPixmap)
    Q_PROPERTY(QString AttentionIconName READ attentionIconName)
    Q_PROPERTY(DBusImageList AttentionIconPixmap READ attentionIconPixmap)
    Q_PROPERTY(QString AttentionMovieName READ attentionMovieName)
    Q_PROPERTY(DBusToolTip ToolTip READ toolTip)
    Q_PROPERTY(bool ItemIsMenu READ itemIsMenu)
    Q_PROPERTY(QDBusObjectPath Menu READ menuPath)
public:
    // The item talks over a session bus connection of its own, so that its object paths are
    // its alone. Panels that draw icons from the icon theme show iconName when the theme has
    // it, the others the images of icon.
    StatusNotifierItem(QString id, QString title, const QIcon& icon, const QString& iconName,
                       QObject* parent = nullptr);
    ~StatusNotifierItem() override;

    // Whether a panel takes StatusNotifierItems on this bus now: a watcher runs and a host
    // (the panel) has registered with it, or the watcher is too busy to say.
    static bool isHostAvailable(QDBusConnection connection = QDBusConnection::sessionBus());

    // Exports the item and registers it with the watcher, now and whenever a watcher starts.
    bool registerItem();
    void setMenu(QMenu* menu) { m_exporter.setMenu(menu); }
    // Whether the panel shows the menu now, by what it said.
    bool isMenuOpen() const { return m_exporter.isMenuOpen(); }

    QString category() const;
    QString id() const { return m_id; }
    QString title() const { return m_title; }
    QString status() const;
    int windowId() const { return 0; }
    QString iconName() const { return m_iconName; }
    DBusImageList iconPixmap() const { return m_images; }
    QString iconThemePath() const { return m_iconThemePath; }
    QString overlayIconName() const { return {}; }
    DBusImageList overlayIconPixmap() const { return {}; }
    QString attentionIconName() const { return {}; }
    DBusImageList attentionIconPixmap() const { return {}; }
    QString attentionMovieName() const { return {}; }
    DBusToolTip toolTip() const { return {m_iconName, {}, m_title, {}}; }
    bool itemIsMenu() const { return false; }
    QDBusObjectPath menuPath() const;

public Q_SLOTS:
    Q_SCRIPTABLE void Activate(int x, int y);
    // A middle click: the same as a left click, the menu at the pointer (the one thing the
    // program offers; a second, different gesture would be a surprise).
    Q_SCRIPTABLE void SecondaryActivate(int x, int y);
    Q_SCRIPTABLE void ContextMenu(int x, int y);
    // The mouse wheel over the icon: nothing to scroll through.
    Q_SCRIPTABLE void Scroll(int delta, const QString& orientation);
    // A panel on Wayland hands over, just before a click's call, the token that lets the
    // window shown next take the keyboard.
    Q_SCRIPTABLE void ProvideXdgActivationToken(const QString& token);

Q_SIGNALS:
    // A left or middle click on the icon, at the point the panel gives (global coordinates).
    void activated(QPoint at);
    // The panel asks the program to show its menu at this point.
    void contextMenuRequested(QPoint at);
    void activationTokenProvided(const QString& token);
    // The panel closed the menu it showed.
    void menuClosed();

private Q_SLOTS:
    void itemUnregistered(const QString& item);

private:
    // GNOME's AppIndicator extension drops an item it failed to set up (its own start-up of the
    // item races with the item's name appearing), and its icon with it: the item registers
    // again, this many times at most for one watcher, so that one that keeps dropping it is
    // not called for ever.
    static constexpr int maxRegistrationsAgain = 3;

    void watcherStarted();
    void registerWithWatcher();
    // Whether item, as a watcher names it, is this one.
    bool isThisItem(const QString& item) const;

    QString m_id;
    QString m_title;
    DBusImageList m_images;
    QString m_iconName;
    QString m_iconThemePath;
    QString m_serviceName;
    QString m_connectionName;
    QDBusConnection m_connection;
    DBusMenuExporter m_exporter;
    QDBusServiceWatcher m_watcherWatcher;
    int m_registrationsAgain = 0;
};
