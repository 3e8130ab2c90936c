#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QString>
#include <QThread>
#include <QVariantList>

#include <functional>
#include <memory>
#include <optional>

class QDBusVirtualObject;

// A service of a bus played for tests (NetworkManager, logind on a private system bus): it owns
// its name on the bus and answers the method calls to its one object from a thread of its own,
// since the program under test may wait for an answer without running its event loop, as Qt's
// network information does. Its signals are real signals on the bus.
class FakeBusService {
public:
    virtual ~FakeBusService();
    FakeBusService(const FakeBusService&) = delete;
    FakeBusService& operator=(const FakeBusService&) = delete;

    // Whether the service owns its name on the bus.
    bool isRegistered() const { return m_registered; }

protected:
    // The answer to a method call to the object, or none for a method it does not know.
    // Called on the service's thread.
    using Handler = std::function<std::optional<QDBusMessage>(const QDBusMessage& call)>;

    // introspection: the object's interfaces as XML <interface> elements.
    FakeBusService(const QString& busAddress, const QString& service, const QString& path,
                   const QString& introspection, Handler handler);

    // Puts the object on the bus and takes the name; called once the service is ready to answer.
    void publish();

    // Sends a signal from the object.
    void emitSignal(const QString& interface, const QString& name, const QVariantList& arguments);

private:
    QString m_busAddress;
    QString m_service;
    QString m_connectionName;
    QString m_path;
    QThread m_thread;
    QDBusVirtualObject* m_object = nullptr; // lives in m_thread
    bool m_registered = false;
};
