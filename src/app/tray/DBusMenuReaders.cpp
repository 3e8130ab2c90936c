#include "app/tray/DBusMenuReaders.h"

DBusMenuReaders::DBusMenuReaders(QObject* parent)
    : QObject(parent) {
    m_watcher.setWatchMode(QDBusServiceWatcher::WatchForUnregistration);
    connect(&m_watcher, &QDBusServiceWatcher::serviceUnregistered, this, &DBusMenuReaders::forget);
}

void DBusMenuReaders::setConnection(const QDBusConnection& connection) {
    m_watcher.setConnection(connection);
}

DBusMenuReaders::Reader& DBusMenuReaders::reader(const QString& service) {
    if (!m_readers.contains(service))
        m_watcher.addWatchedService(service);
    return m_readers[service];
}

const DBusMenuReaders::Reader* DBusMenuReaders::find(const QString& service) const {
    const auto reader = m_readers.constFind(service);
    return reader == m_readers.cend() ? nullptr : &*reader;
}

void DBusMenuReaders::markRead(Reader& reader, int id) const {
    reader.readVersions.insert(id, m_versions.value(id));
}

bool DBusMenuReaders::hasRead(const Reader& reader, int id) const {
    const auto read = reader.readVersions.constFind(id);
    return read != reader.readVersions.cend() && *read == m_versions.value(id);
}

void DBusMenuReaders::forgetKind(int id) {
    for (Reader& reader : m_readers)
        reader.toldKinds.remove(id);
}

void DBusMenuReaders::forgetEntry(int id) {
    for (Reader& reader : m_readers) {
        reader.readVersions.remove(id);
        reader.toldKinds.remove(id);
        reader.toldStandIns.remove(id);
    }
}

void DBusMenuReaders::forget(const QString& service) {
    m_readers.remove(service);
    m_watcher.removeWatchedService(service);
}
