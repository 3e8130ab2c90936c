#pragma once

#include <QDBusConnection>
#include <QDBusServiceWatcher>
#include <QHash>
#include <QObject>
#include <QSet>
#include <QString>

// What each panel (each caller on the bus) has read of the published menu, forgotten when it
// leaves the bus: which menus' entries it read as they are now, and which entries' kinds it
// was told.
class DBusMenuReaders : public QObject {
    Q_OBJECT
public:
    struct Reader {
        // The version of each menu whose entries the panel read.
        QHash<int, quint64> readVersions;
        // Entries whose kind (separator, submenu) the panel was told in a layout.
        QSet<int> toldKinds;
        // Entries whose submenu, not made yet, the panel was told to read as its stand-in.
        QSet<int> toldStandIns;
    };

    explicit DBusMenuReaders(QObject* parent = nullptr);

    void setConnection(const QDBusConnection& connection);

    // The panel of service, followed on the bus from now on.
    Reader& reader(const QString& service);
    // The panel of service if it read anything.
    const Reader* find(const QString& service) const;

    // The entries of the menu of id changed: what panels read of them is out of date.
    void menuChanged(int id) { ++m_versions[id]; }
    // The reader reads the entries of the menu of id as they are now.
    void markRead(Reader& reader, int id) const;
    // Whether the reader read the entries of the menu of id as they are now.
    bool hasRead(const Reader& reader, int id) const;
    // The entry is of another kind now: every panel is to be told it anew.
    void forgetKind(int id);
    // The entry left the menu: a panel forgets it, and reads it anew if it comes back.
    void forgetEntry(int id);

private:
    void forget(const QString& service);

    QHash<QString, Reader> m_readers;
    QDBusServiceWatcher m_watcher;
    // The version of each menu's list of entries, raised with every change of it.
    QHash<int, quint64> m_versions;
};
