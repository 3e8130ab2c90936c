#include "TestStatusNotifierWatcher.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusServiceWatcher>
#include <QDeadlineTimer>

namespace {
const QString watcherName = QStringLiteral("org.kde.StatusNotifierWatcher");
const QString watcherPath = QStringLiteral("/StatusNotifierWatcher");
const QString connectionName = QStringLiteral("test-status-notifier-watcher");
} // namespace

// The exported object; lives on the watcher's thread.
class WatcherService : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierWatcher")
    Q_PROPERTY(QStringList RegisteredStatusNotifierItems READ registeredItems)
    Q_PROPERTY(bool IsStatusNotifierHostRegistered READ isHostRegistered)
    Q_PROPERTY(int ProtocolVersion READ protocolVersion)
public:
    WatcherService(TestStatusNotifierWatcher* owner, const QDBusConnection& connection)
        : m_owner(owner)
        , m_connection(connection)
        , m_vanished(QString(), connection, QDBusServiceWatcher::WatchForUnregistration) {
        connect(&m_vanished, &QDBusServiceWatcher::serviceUnregistered, this,
                &WatcherService::forget);
    }

    QStringList registeredItems() const {
        QStringList names;
        for (const auto& item : m_items)
            names.append(item.service + item.path);
        return names;
    }
    bool isHostRegistered() const { return true; }
    int protocolVersion() const { return 0; }
    // An item of a program still on the bus, dropped and named by its bus name alone, as
    // GNOME's AppIndicator extension does.
    void drop(const QString& service) { remove(service, true); }

public Q_SLOTS:
    // The item names its bus name (its object is then at /StatusNotifierItem) or its object
    // path (on the caller's connection).
    void RegisterStatusNotifierItem(const QString& serviceOrPath, const QDBusMessage& message) {
        TestStatusNotifierWatcher::Item item;
        if (serviceOrPath.startsWith(u'/')) {
            item = {message.service(), serviceOrPath};
        } else {
            item = {serviceOrPath, QStringLiteral("/StatusNotifierItem")};
        }
        for (const auto& known : std::as_const(m_items))
            if (known.service == item.service && known.path == item.path)
                return;
        m_items.append(item);
        m_vanished.addWatchedService(item.service);
        m_owner->setItems(m_items);
        Q_EMIT StatusNotifierItemRegistered(item.service + item.path);
    }
    void RegisterStatusNotifierHost(const QString&) { Q_EMIT StatusNotifierHostRegistered(); }

Q_SIGNALS:
    void StatusNotifierItemRegistered(const QString& item);
    void StatusNotifierItemUnregistered(const QString& item);
    void StatusNotifierHostRegistered();

private:
    // Gone from the bus: named by its bus name and path.
    void forget(const QString& service) { remove(service, false); }

    void remove(const QString& service, bool byNameAlone) {
        for (qsizetype i = m_items.size() - 1; i >= 0; --i) {
            if (m_items[i].service != service)
                continue;
            const QString gone = byNameAlone ? service : m_items[i].service + m_items[i].path;
            m_items.remove(i);
            Q_EMIT StatusNotifierItemUnregistered(gone);
        }
        m_vanished.removeWatchedService(service);
        m_owner->setItems(m_items);
    }

    TestStatusNotifierWatcher* m_owner;
    QDBusConnection m_connection;
    QDBusServiceWatcher m_vanished;
    QList<TestStatusNotifierWatcher::Item> m_items;
};

TestStatusNotifierWatcher::TestStatusNotifierWatcher(QString busAddress)
    : m_busAddress(std::move(busAddress)) {
    m_context.moveToThread(&m_thread);
}

TestStatusNotifierWatcher::~TestStatusNotifierWatcher() {
    stop();
}

bool TestStatusNotifierWatcher::start() {
    stop();
    m_thread.start();
    bool started = false;
    QMetaObject::invokeMethod(
        &m_context,
        [this, &started] {
            QDBusConnection connection =
                QDBusConnection::connectToBus(m_busAddress, connectionName);
            if (!connection.isConnected())
                return;
            auto* service = new WatcherService(this, connection);
            if (!connection.registerObject(watcherPath, service,
                                           QDBusConnection::ExportAllContents) ||
                !connection.registerService(watcherName)) {
                delete service;
                QDBusConnection::disconnectFromBus(connectionName);
                return;
            }
            m_service = service;
            started = true;
        },
        Qt::BlockingQueuedConnection);
    if (!started)
        stop();
    return started;
}

void TestStatusNotifierWatcher::stop() {
    if (!m_thread.isRunning())
        return;
    QMetaObject::invokeMethod(
        &m_context,
        [this] {
            if (!m_service)
                return;
            QDBusConnection connection = QDBusConnection(connectionName);
            connection.unregisterService(watcherName);
            connection.unregisterObject(watcherPath);
            delete m_service;
            m_service = nullptr;
            QDBusConnection::disconnectFromBus(connectionName);
        },
        Qt::BlockingQueuedConnection);
    m_thread.quit();
    m_thread.wait();
    setItems({});
}

void TestStatusNotifierWatcher::drop(const QString& service) {
    QMetaObject::invokeMethod(
        &m_context,
        [this, service] {
            if (m_service)
                static_cast<WatcherService*>(m_service)->drop(service);
        },
        Qt::BlockingQueuedConnection);
}

QList<TestStatusNotifierWatcher::Item> TestStatusNotifierWatcher::items() const {
    QMutexLocker lock(&m_mutex);
    return m_items;
}

bool TestStatusNotifierWatcher::waitForItem(int timeoutMs) const {
    QDeadlineTimer deadline(timeoutMs);
    while (items().isEmpty()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    }
    return true;
}

void TestStatusNotifierWatcher::setItems(const QList<Item>& items) {
    QMutexLocker lock(&m_mutex);
    m_items = items;
}

#include "TestStatusNotifierWatcher.moc"
