#include "FakeBusService.h"

#include <QDBusVirtualObject>
#include <QUuid>

namespace {

class Responder : public QDBusVirtualObject {
public:
    Responder(QString introspection,
              std::function<std::optional<QDBusMessage>(const QDBusMessage&)> handler)
        : m_introspection(std::move(introspection))
        , m_handler(std::move(handler)) {}

    QString introspect(const QString&) const override { return m_introspection; }

    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
        const std::optional<QDBusMessage> reply = m_handler(message);
        if (!reply)
            return false; // the bus answers "unknown method"
        connection.send(*reply);
        return true;
    }

private:
    QString m_introspection;
    std::function<std::optional<QDBusMessage>(const QDBusMessage&)> m_handler;
};

} // namespace

FakeBusService::FakeBusService(const QString& busAddress, const QString& service,
                               const QString& path, const QString& introspection, Handler handler)
    : m_busAddress(busAddress)
    , m_service(service)
    , m_connectionName(service + QStringLiteral("-") +
                       QUuid::createUuid().toString(QUuid::WithoutBraces))
    , m_path(path) {
    m_thread.setObjectName(service);
    m_thread.start();
    m_object = new Responder(introspection, std::move(handler));
    m_object->moveToThread(&m_thread);
}

void FakeBusService::publish() {
    QDBusConnection connection = QDBusConnection::connectToBus(m_busAddress, m_connectionName);
    m_registered = connection.isConnected() && connection.registerVirtualObject(m_path, m_object) &&
                   connection.registerService(m_service);
}

FakeBusService::~FakeBusService() {
    {
        QDBusConnection connection(m_connectionName);
        connection.unregisterObject(m_path);
    }
    QDBusConnection::disconnectFromBus(m_connectionName);
    m_thread.quit();
    m_thread.wait();
    // Its thread has ended: nothing calls it any more.
    delete m_object;
}

void FakeBusService::emitSignal(const QString& interface, const QString& name,
                                const QVariantList& arguments) {
    QDBusMessage signal = QDBusMessage::createSignal(m_path, interface, name);
    signal.setArguments(arguments);
    QDBusConnection(m_connectionName).send(signal);
}
